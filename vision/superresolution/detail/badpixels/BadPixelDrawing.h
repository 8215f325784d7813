#pragma once

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// See BadPixel::drawBadPixels.
void drawBadPixels(const cv::Mat& list, cv::Mat_<cv::Vec<unsigned char, 3>>& img, const cv::Scalar_<double>& colour,
                   unsigned int size, bool randomColour);

}  // namespace movra::vision::detail
