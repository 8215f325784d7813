#include "vision/superresolution/detail/registration/CornerTracking.h"

#include <cmath>

#include <opencv2/video/tracking.hpp>

#include "vision/superresolution/detail/base/CallingThread.h"

namespace movra::vision::detail {

namespace {

// True when the window around a position, with its bilinear neighbours, shares pixels with the image.
bool meets(cv::Point_<float> position, int window, cv::Size image) {
  const float half = static_cast<float>(window - 1) * 0.5f;
  const float left = std::floor(position.x - half);
  const float top = std::floor(position.y - half);
  const auto reach = static_cast<float>(-window);
  return left >= reach && left < static_cast<float>(image.width) && top >= reach &&
         top < static_cast<float>(image.height);
}

}  // namespace

// The patch errors, which nobody reads, would cost time. Where it computes them, OpenCV also gives up a corner that its
// last step moved out of the image, so that is done here.
CornerTracks trackCorners(const std::vector<cv::Mat>& from, const std::vector<cv::Mat>& to,
                          const std::vector<cv::Point_<float>>& corners, int window, int levels) {
  CornerTracks tracks;
  onCallingThread([&] {
    cv::calcOpticalFlowPyrLK(from, to, corners, tracks.positions, tracks.isTracked, cv::noArray(), {window, window},
                             levels, {cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01}, 0, 1e-4);
  });
  for (std::size_t i = 0; i < corners.size(); ++i) {
    if (!meets(tracks.positions[i], window, to.front().size())) {
      tracks.isTracked[i] = 0;
    }
  }
  return tracks;
}

}  // namespace movra::vision::detail
