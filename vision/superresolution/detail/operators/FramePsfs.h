#pragma once

#include <memory>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// Where the base PSF and the crop of the result lie. At factor 2 the first two are the same.
enum class PsfPlacement {
  /// The middle lies between the two middle taps, and shifts are shorter than one tap.
  evenTaps,
  /// The PSF is centred on the high-resolution pixels of a low-resolution one at any whole factor, and moves by any shift.
  anyFactor,
  /// As evenTaps, but the Gaussian itself is moved, and then its mass taken in each pixel: moving by interpolation between
  /// taps would widen it by the variance f (1 - f), f the fraction of a pixel.
  movedGaussian
};

/// The PSFs of the frames of a reconstruction: a Gaussian on the high-resolution grid, moved by each frame's shift. A PSF
/// is separable and has `taps` taps in each direction.
class FramePsfs {
 public:
  /// @param frameCount most frames
  /// @param factor     up-scaling factor
  FramePsfs(int taps, int frameCount, float factor, PsfPlacement placement);

  /// Rebuilds the base PSF: the mass of a Gaussian with standard deviation `sigma` in each high-resolution pixel, scaled
  /// to a sum of 1.
  void setSigma(float sigma);
  float getSigma() const { return sigma; }

  /// Moves the base PSF by the shifts of `count` frames, in low-resolution pixels.
  void moveTo(int count, const cv::Point_<float>* shifts);

  int taps() const { return tapCount; }
  const float* base() const { return basePsf.get(); }

  /// Taps of frame k.
  float* x(int k) const { return psfX.get() + static_cast<std::ptrdiff_t>(k) * tapCount; }
  float* y(int k) const { return psfY.get() + static_cast<std::ptrdiff_t>(k) * tapCount; }

 private:
  void moveGaussian(float shift, float* moved) const;

  int tapCount;
  float factor;
  PsfPlacement placement;
  float sigma = 0;
  std::unique_ptr<float[]> basePsf;
  std::unique_ptr<float[]> psfX;
  std::unique_ptr<float[]> psfY;
};

}  // namespace movra::vision::detail
