#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/reconstruction/Reconstruction.h"

namespace movra::tool {

/// What the image holds where it is a measurement.
struct Statistics {
  cv::Rect inside;  ///< the part of the image that all frames that were used have seen
  double minimum = 0;
  double mean = 0;
  double maximum = 0;
};

/// The part of the image (high-resolution pixels) that all used frames have seen, less the reach of the blur; empty when
/// there is none.
cv::Rect seenByAll(const Reconstruction& result);

/// Over the finite pixels inside; nothing when there are none.
std::optional<Statistics> statisticsOf(const Reconstruction& result);

/// How well the frames' sub-pixel places spread along an axis: 0, all at the same place, to 1, evenly. It is 1 less the
/// strength of the first alias that remains when the frames are put together.
struct Spread {
  double x;
  double y;
};

Spread spreadOf(const Reconstruction& result);

/// Median of the finite values.
double medianOf(const cv::Mat_<float>& image);

}  // namespace movra::tool
