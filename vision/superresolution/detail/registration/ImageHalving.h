#pragma once

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// Halves an 8-bit image of at least 3 x 3 pixels in both directions, rounded up: every second pixel of the image blurred
/// by 1 4 6 4 1 and continued at its borders as in a mirror (P. J. Burt and E. H. Adelson). The result is that of
/// cv::pyrDown, which would start threads.
/// @param half has the size and the type of the result, and is written in place
void halveImage(const cv::Mat& image, cv::Mat& half);

}  // namespace movra::vision::detail
