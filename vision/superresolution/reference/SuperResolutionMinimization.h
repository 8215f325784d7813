#pragma once

#include <vector>

#include "vision/superresolution/SuperResolutionTypes.h"
#include "vision/superresolution/shared/TvMinimization.h"

namespace movra::vision {

/// Minimisation of the reference engine: the operators are the plain loops of SuperResolutionConvolution.
/// TvMinimization has all its operations.
///
/// It serves any integer factor. The PSF is centred on the high-resolution pixels that make up a low-resolution one, and
/// moves by whole taps as well as by fractions of a tap, which shifts need from factor 3 on. At factor 2 all of that is
/// the same as in SrFloatMinimization, and so is every bit of the result.
class MOVRA_SUPERRESOLUTION_API SuperResolutionMinimization : public TvMinimization<char> {
 public:
  /// Results of a minimisation that failed.
  static constexpr int noFrames = -1;
  static constexpr int noContrast = -2;

  /// @param width  columns of a low-resolution frame
  /// @param height its rows
  /// @param frameCount    the most frames of one reconstruction
  /// @param factor        up-scaling factor
  /// @throws std::bad_array_new_length if a size is negative or too large
  SuperResolutionMinimization(int width, int height, int frameCount, float factor);
  ~SuperResolutionMinimization();

  /// As TvMinimization::minimize, with the reference engine's type of points.
  /// @return number of conjugate-gradient iterations made; -1 when there is no frame, there are more than the object was
  ///         made for, or the reference is not among them; -2 when the reference is constant or not finite, so that it
  ///         cannot be normalised. Nothing is changed then.
  int minimize(int count, int refIndex, float** frames, const PointF* shifts, char** masks, float* out);

 private:
  int width;
  int height;
  std::vector<cv::Point_<float>> points;  // as many as frames
};

}  // namespace movra::vision
