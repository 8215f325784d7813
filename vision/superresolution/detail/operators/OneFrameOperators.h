#pragma once

#include "vision/superresolution/detail/operators/RollingOperators.h"

namespace movra::vision::detail {

/// The sparse PSF operators at factor 2 with six taps and byte masks for one frame at a time: RollingOperators, which the
/// minimisation runs for all frames together, over whole images.
class OneFrameOperators {
 public:
  OneFrameOperators(int lowWidth, int lowHeight);

  /// Masked transpose of the imaging model.
  /// @param image, mask low-resolution
  /// @param out         padded, overwritten
  void fullConvFromSparse(const float* image, const float* psfX, const float* psfY, const char* mask, float* out);

  /// Imaging model.
  /// @param hr  padded
  /// @param out low-resolution, overwritten
  void validCorrToSparse(const float* hr, const float* psfX, const float* psfY, float* out);

 private:
  int width;
  int height;
  RollingOperators rolling;
};

}  // namespace movra::vision::detail
