#pragma once

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// Two-point calibration, per pixel: slope and offset of the line through (nucLow, radLow) and (nucHigh, radHigh). A pixel
/// whose two counts are equal has no line: both are NaN there. The results have the size of `nucLow`, the other images at
/// least that.
void twoPointCalibration(const cv::Mat_<short>& nucLow, const cv::Mat_<float>& radLow, const cv::Mat_<short>& nucHigh,
                         const cv::Mat_<float>& radHigh, cv::Mat_<float>& slope, cv::Mat_<float>& offset);

/// Replaces, in place and in raster order, each value of 1000 or more and of -1000 or less by the mean of those of its
/// left, right, upper and lower neighbours that lie between; by NaN when there is none. NaN stays.
void repairOutliers(cv::Mat_<float>& image);

}  // namespace movra::vision::detail
