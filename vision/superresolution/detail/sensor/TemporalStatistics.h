#pragma once

#include <vector>

#include "vision/superresolution/FrameStack.h"

namespace movra::vision::detail {

/// Statistics over the images of a stack, one per pixel. Values that are not finite are left out; 0 where fewer than
/// two remain.
struct TemporalStatistics {
  std::vector<float> median;
  std::vector<float> medianOfAbsolute;
  std::vector<float> secondLargest;  // absolute value; of two images the largest
  std::vector<float> largest;        // absolute value
};

TemporalStatistics temporalStatisticsOf(const FrameStack& stack);

/// Median over the frames of (pixel - median of its eight neighbours, mirrored at the border). Unmeasured pixels count
/// as the median of their neighbours.
struct MedianDetail {
  std::vector<float> median;
  std::vector<float> weakest;  // how far the detail goes the same way in all frames but one
};

MedianDetail medianDetail(const FrameStack& frames);

/// What is normal around a pixel: 0.7-quantile of the 48 others of its 7 x 7 neighbourhood, mirrored at the border.
float typicalAround(const std::vector<float>& image, int width, int height, int x, int y);

}  // namespace movra::vision::detail
