#pragma once

#include <cstddef>

namespace movra::vision::detail {

/// Columns that a temporal statistic takes at once.
constexpr int temporalLanes = 64;

/// Row kernels of the measurements on a burst. All pixels are finite unless stated otherwise.
struct SensorKernels {
  /// Sum of the squared halved central differences; one-sided ones in the first and last column.
  void (*gradientEnergy)(const float* above, const float* row, const float* below, int width, float* energy);

  /// |second difference in x of the second difference in y| / 6, whose deviation is that of the pixels; inner columns.
  void (*planeFreeDifference)(const float* above, const float* row, const float* below, int width, float* difference);

  /// Pixel less the median of its eight neighbours; columns -1 and `width` are read too.
  void (*neighbourMedianDifference)(const float* above, const float* row, const float* below, int width,
                                    float* difference);

  /// Over `count` images, for up to temporalLanes pixels of each: median, median of the absolute values, the second
  /// largest absolute value (of two images the largest) and the largest; nothing but the median if the other pointers
  /// are null. Values that are not finite are left out; 0 where fewer than two remain.
  /// @param rows pointers into the images, `offset` elements before the pixels
  /// @param scratch count * temporalLanes floats
  void (*temporalStatistics)(const float* const* rows, std::ptrdiff_t offset, int count, int width, float* scratch,
                             float* median, float* medianOfAbsolute, float* secondLargest, float* largest);

  /// The median as above, and how far all values but one (all, of less than five) lie from 0 on the same side.
  void (*temporalMedian)(const float* const* rows, std::ptrdiff_t offset, int count, int width, float* scratch,
                         float* median, float* weakest);

  /// Where |value| < limit (so not where it is NaN) and bad is 0: adds value, its square and 1.
  void (*addResiduals)(const float* values, const unsigned char* bad, float limit, int width, float* sum,
                       float* squares, float* counts);
};

/// The kernels of the active instruction set.
const SensorKernels& sensorKernels();

}  // namespace movra::vision::detail
