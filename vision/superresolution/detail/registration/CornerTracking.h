#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// Where corners of one image are in another.
struct CornerTracks {
  std::vector<cv::Point_<float>> positions;  // one per corner
  std::vector<unsigned char> isTracked;      // 0 where a corner was lost
};

/// Tracks corners of one image in others by the pyramidal Lucas-Kanade method (J.-Y. Bouguet). The results are those of
/// CvReplacements::calcOpticalFlowPyrLK when it is asked for errors: it then also gives up a corner that its last step moved
/// out of the image.
/// @param from, to pyramids of CvReplacements::buildOpticalFlowPyramid, with derivatives, for a square `window`
/// @param levels   highest level of the pyramids to use
std::vector<CornerTracks> trackCorners(const std::vector<cv::Mat>& from,
                                       const std::vector<const std::vector<cv::Mat>*>& to,
                                       const std::vector<cv::Point_<float>>& corners, int window, int levels);

}  // namespace movra::vision::detail
