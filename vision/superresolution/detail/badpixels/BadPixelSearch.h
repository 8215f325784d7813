#pragma once

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// See BadPixel::buildValueHistogram.
bool buildValueHistogram(const cv::Mat_<short>& img, cv::Mat_<int>& hist, short lo, short hi);

/// See BadPixel::performNeighbourSearch.
bool findBadPixels(const cv::Mat_<short>& img, cv::Mat_<int>& hist, cv::Mat_<unsigned short>& list, short lo, short hi,
                   unsigned short maxCount, unsigned short window);

}  // namespace movra::vision::detail
