#pragma once

#include <cstddef>
#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/FrameStack.h"

namespace movra::vision::detail {

constexpr double quantileOfDeviation = 1.036;  // 0.7-quantile of |x| for a normal distribution of deviation 1
constexpr double medianOfDeviation = 0.6745;   // median of it

/// A pixel and how many times its value is what is typical around it.
struct Outlier {
  std::size_t pixel;
  double strength;
};

/// Pixels whose |value| exceeds `limit` times what is typical: `globally`, and in their 7 x 7 neighbourhood of `around`,
/// whose 0.7-quantile is `quantile` deviations. Most pixels fail the first test, so that the second one is rarely needed.
std::vector<Outlier> outliersOf(const std::vector<float>& values, const std::vector<float>& around, int width,
                                int height, double limit, double globally, double quantile);

/// What rounding alone does to values of this size: nothing below counts as typical, or noise-free frames would be full
/// of outliers.
double roundingOf(const FrameStack& frames);

/// robustDeviation of a copy.
double deviationOf(std::vector<float> values);

/// Whether the detail that a pixel shows in each frame is found where the scene has moved to in most others: then it is
/// the scene's, not the sensor's. False where the frames do not move far enough to tell.
bool movesWithScene(const FrameStack& frames, const std::vector<AffineMotion>& motions, int x, int y);

/// The same for the frame in which the pixel's detail is largest: a small hot thing shows in each frame in another pixel.
bool showsInOtherFrames(const FrameStack& frames, const std::vector<AffineMotion>& motions, int x, int y);

/// Pixels that differ from the median of their neighbours in most frames; at most 3 % of all.
std::vector<Outlier> spatialOutliers(const FrameStack& frames);

}  // namespace movra::vision::detail
