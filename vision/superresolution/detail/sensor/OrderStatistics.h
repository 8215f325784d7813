#pragma once

#include <cstddef>
#include <vector>

#include "vision/superresolution/FrameStack.h"

namespace movra::vision::detail {

/// Standard deviation of a normal distribution per median absolute deviation (F. R. Hampel, 1974).
constexpr double deviationPerMad = 1.4826;

/// Element number `rank` of the values in ascending order, counted from 0; the last one for a larger rank, 0 for no values.
/// Reorders the values, which hold no NaN. The result is an element, so no order of operations can change its bits.
float orderStatistic(std::vector<float>& values, std::size_t rank);

/// The element in the middle; of an even number the upper one of the two. 0 for no values. Reorders the values.
float medianOf(std::vector<float>& values);

/// The middle of a few values, of an even number the mean of the two; 0 for no values.
double medianOf(std::vector<double> values);

/// 1.4826 times the median absolute deviation from the median; 0 for no values. Changes the values.
double robustDeviation(std::vector<float>& values);

/// Measured values spread evenly over all images of the stack: about `limit`, or all if there are fewer.
std::vector<float> sampleOf(const FrameStack& stack, std::size_t limit = std::size_t{1} << 18);

/// robustDeviation of such a sample, whose own error is below half a percent.
double robustDeviation(const FrameStack& stack);

}  // namespace movra::vision::detail
