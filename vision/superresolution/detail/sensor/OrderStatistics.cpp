#include "vision/superresolution/detail/sensor/OrderStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

#include "vision/superresolution/detail/sensor/FrameChecks.h"

namespace movra::vision::detail {

namespace {

// The upper half of a key as an index.
std::size_t binOf(float value) {
  return static_cast<std::size_t>((keyOf(value) >> 16) + 32768);
}

// Moves the values of the bin that holds the element of that rank to the front; returns their number and changes the
// rank to that within them. One pass of counting is several times as fast as partitioning.
std::size_t gatherBin(std::vector<float>& values, std::size_t& rank) {
  std::vector<std::uint32_t> counts(65536, 0);
  for (const float value : values) {
    ++counts[binOf(value)];
  }
  std::size_t bin = 0;
  for (; rank >= counts[bin]; ++bin) {
    rank -= counts[bin];
  }
  std::size_t found = 0;
  for (float& value : values) {
    if (binOf(value) == bin) {
      std::swap(value, values[found++]);
    }
  }
  return found;
}

}  // namespace

float orderStatistic(std::vector<float>& values, std::size_t rank) {
  std::size_t count = values.size();
  if (count == 0) {
    return 0;
  }
  rank = std::min(rank, count - 1);
  if (count > 16384) {
    count = gatherBin(values, rank);
  }
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(rank);
  // Keys tell -0 from +0, which compare equal.
  std::nth_element(values.begin(), middle, values.begin() + static_cast<std::ptrdiff_t>(count),
                   [](float a, float b) { return keyOf(a) < keyOf(b); });
  return *middle;
}

float medianOf(std::vector<float>& values) {
  return orderStatistic(values, values.size() / 2);
}

double medianOf(std::vector<double> values) {
  if (values.empty()) {
    return 0;
  }
  std::sort(values.begin(), values.end());
  return 0.5 * (values[(values.size() - 1) / 2] + values[values.size() / 2]);
}

double robustDeviation(std::vector<float>& values) {
  const float median = medianOf(values);
  for (float& value : values) {
    value = std::abs(value - median);
  }
  return deviationPerMad * static_cast<double>(medianOf(values));
}

std::vector<float> sampleOf(const FrameStack& stack, std::size_t limit) {
  const std::size_t pixels = stack.pixels();
  std::size_t step =
      std::max<std::size_t>(1, pixels * static_cast<std::size_t>(stack.count) / std::max<std::size_t>(1, limit));
  // A step without a divisor in common with the width visits all columns.
  while (step > 1 && std::gcd(step, static_cast<std::size_t>(stack.width)) != 1) {
    --step;
  }
  std::vector<float> values;
  values.reserve(pixels * static_cast<std::size_t>(stack.count) / step + 1);
  for (int k = 0; k < stack.count; ++k) {
    for (std::size_t i = 0; i < pixels; i += step) {
      if (isMeasured(stack.frames[k][i])) {
        values.push_back(stack.frames[k][i]);
      }
    }
  }
  return values;
}

double robustDeviation(const FrameStack& stack) {
  std::vector<float> values = sampleOf(stack);
  return robustDeviation(values);
}

}  // namespace movra::vision::detail
