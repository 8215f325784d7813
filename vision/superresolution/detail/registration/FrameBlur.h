#pragma once

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/registration/FilterKernels.h"

namespace movra::vision::detail {

/// The smallest and the largest value of an image; of one without any number, lowest > highest.
struct ValueRange {
  float lowest;
  float highest;
};

/// Gaussian blur of frames of one size, mirrored at the borders without repeating the outermost pixel. Filtered rows stay
/// in cache until the filter along columns has used them. Results are the bits that cv::GaussianBlur has on processors
/// with fused multiply-add.
class FrameBlur {
 public:
  FrameBlur(int width, int height);

  /// Blurs `frame` into another array and returns the range of the result.
  ValueRange apply(const float* frame, float* blurred);

 private:
  void filterRow(const float* row, float* filtered);
  float* ringRow(int y) { return ring.get() + static_cast<std::ptrdiff_t>(y % blurTaps) * width; }

  int width;
  int height;
  float taps[blurTaps];
  AlignedFloats continued;  // a row with what the mirror shows on both sides
  AlignedFloats ring;       // rows filtered along themselves
};

}  // namespace movra::vision::detail
