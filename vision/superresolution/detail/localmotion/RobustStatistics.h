#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace movra::vision::detail {

/// Element number `rank` of the sorted values, which change their order; 0 if there are none.
inline float orderStatistic(std::vector<float>& values, std::size_t rank) {
  if (values.empty()) {
    return 0;
  }
  const auto place = values.begin() + static_cast<std::ptrdiff_t>(std::min(rank, values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

/// The upper median.
inline float medianOf(std::vector<float>& values) {
  return orderStatistic(values, values.size() / 2);
}

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
