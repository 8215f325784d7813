#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// Finds the strongest corners of an image (J. Shi and C. Tomasi): local maxima of the smaller eigenvalue of the 3 x 3
/// structure tensor that exceed a tenth of its largest value, at most 100, at least 2 pixels from each other.
///
/// The corners and their order are those of cv::goodFeaturesToTrack with these settings, which takes a fifth more time:
/// it is made for any number of corners at any distance.
std::vector<cv::Point_<float>> findCorners(const cv::Mat_<float>& image);

}  // namespace movra::vision::detail
