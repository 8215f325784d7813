#pragma once

#include <opencv2/core.hpp>

namespace movra::vision::detail {

// Columns of a bad-pixel list: x, y of the pixel, then x, y of each replacement.
constexpr int listColumns = 10;
constexpr int firstReplacement = 2;
constexpr int replacementCount = 4;

/// Positions in a list are 16-bit, so no coordinate of a listed pixel exceeds this.
constexpr int largestPosition = 65535;

inline bool isBadPixelList(const cv::Mat& list) {
  return list.type() == CV_16UC1 && list.dims == 2 && list.cols == listColumns;
}

}  // namespace movra::vision::detail
