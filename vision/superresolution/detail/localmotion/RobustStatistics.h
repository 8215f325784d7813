#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "vision/superresolution/detail/sensor/OrderStatistics.h"

namespace movra::vision::detail {

/// Median and the standard deviation that the median distance from it stands for under a normal distribution.
struct RobustSpread {
  float median;
  float deviation;
};

/// The values are used up.
inline RobustSpread robustSpread(std::vector<float>& values) {
  const float median = medianOf(values);
  for (float& value : values) {
    value = std::abs(value - median);
  }
  return {median, 1.4826f * medianOf(values)};
}

}  // namespace movra::vision::detail
