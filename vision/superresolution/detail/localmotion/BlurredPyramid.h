#pragma once

#include <vector>

#include "vision/superresolution/detail/localmotion/PaddedImage.h"

namespace movra::vision::detail {

/// A frame blurred by a Gaussian of variance 3, as a cubic B-spline, and its smaller versions by halves.
///
/// The blur and the inverse of the spline's sampling are one filter of 17 taps. Pixel (x, y) of level l lies at
/// (2^l x, 2^l y) of the frame.
class BlurredPyramid {
 public:
  struct Level {
    PaddedImage coefficients;
    PaddedImage values;  // of the spline at the pixels
  };

  BlurredPyramid(int width, int height);

  /// Makes all levels from a dense frame without bad pixels.
  void make(const float* frame);

  /// Takes over in level 0 that a pixel of the frame has changed by this; not within 20 pixels of the border.
  void change(int x, int y, float difference);

  int levels() const { return static_cast<int>(images.size()); }
  const Level& level(int l) const { return images[static_cast<std::size_t>(l)]; }

 private:
  void filter(const PaddedImage& in, const float* taps, int radius, int every, PaddedImage& out);

  std::vector<Level> images;
  PaddedImage source;   // the frame
  PaddedImage between;  // rows filtered
};

}  // namespace movra::vision::detail
