#pragma once

#include <cmath>
#include <cstddef>

#include "vision/superresolution/detail/sensor/FrameChecks.h"

namespace movra::vision::detail {

/// Weights of the four neighbours by cubic convolution with a = -1/2 (R. G. Keys, 1981) at a fraction of a pixel.
struct CubicWeights {
  explicit CubicWeights(double f)
      : w{((-0.5 * f + 1) * f - 0.5) * f, (1.5 * f - 2.5) * f * f + 1, ((-1.5 * f + 2) * f + 0.5) * f,
          (0.5 * f - 0.5) * f * f} {}
  double w[4];
};

/// Reads the image between its pixels. False where one of the sixteen pixels needed lies outside, is not measured, or
/// the position is not finite.
inline bool sampleCubic(const float* image, int width, int height, double x, double y, double& value) {
  if (!(x >= 1 && y >= 1 && x < width - 2 && y < height - 2)) {
    return false;
  }
  const int left = static_cast<int>(x) - 1;
  const int top = static_cast<int>(y) - 1;
  const CubicWeights across(x - (left + 1));
  const CubicWeights down(y - (top + 1));
  const float* row = image + static_cast<std::size_t>(top) * static_cast<std::size_t>(width) + left;
  value = 0;
  for (int j = 0; j < 4; ++j, row += width) {
    double sum = 0;
    for (int i = 0; i < 4; ++i) {
      if (!isMeasured(row[i])) {
        return false;
      }
      sum += across.w[i] * static_cast<double>(row[i]);
    }
    value += down.w[j] * sum;
  }
  return true;
}

}  // namespace movra::vision::detail
