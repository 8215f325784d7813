#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace movra::tool {

/// A picture to look at: the bicubic enlargement of the reference frame beside the reconstruction, both in
/// the same false colours (inferno), and a colour bar with values in the unit. The colours span the 0.5th to
/// the 99.5th percentile of the reconstruction's finite pixels; what is not finite is grey. 8-bit blue,
/// green, red.
cv::Mat_<cv::Vec3b> drawPreview(const cv::Mat_<float>& bicubic, const cv::Mat_<float>& reconstruction,
                                const std::string& unit);

/// The image in shades of grey that span its 0.5th to 99.5th percentile, to draw on. 8-bit blue, green, red.
cv::Mat_<cv::Vec3b> drawGrey(const cv::Mat_<float>& image);

}  // namespace movra::tool
