#include "vision/superresolution/detail/registration/CornerTracking.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/registration/PointTracking.h"

namespace movra::vision::detail {

namespace {

int topLevel(const std::vector<cv::Mat>& pyramid) {
  return static_cast<int>(pyramid.size() / 2) - 1;
}

TrackedLevel levelOf(const std::vector<cv::Mat>& pyramid, int level, cv::Size window) {
  const auto image = 2 * static_cast<std::size_t>(level);
  return {pyramid[image], pyramid[image + 1], window};
}

}  // namespace

// The patch around a corner is read once for all images.
std::vector<CornerTracks> trackCorners(const std::vector<cv::Mat>& from,
                                       const std::vector<const std::vector<cv::Mat>*>& to,
                                       const std::vector<cv::Point_<float>>& corners, int window, int levels) {
  const cv::Size size(window, window);
  const SearchLimits limits({cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01}, 1e-4);
  std::vector<CornerTracks> tracks(
      to.size(), {std::vector<cv::Point_<float>>(corners.size()), std::vector<unsigned char>(corners.size())});
  ReferencePatch patch(size, 1);
  std::vector<ReferencePatch::Search> searches(to.size());
  const int top = std::min(levels, topLevel(from));
  for (int level = top; level >= 0; --level) {
    const TrackedLevel reference = levelOf(from, level, size);
    std::vector<TrackedLevel> images;
    for (const std::vector<cv::Mat>* pyramid : to) {
      images.push_back(levelOf(*pyramid, level, size));
    }
    const float scale = std::ldexp(1.0f, -level);
    for (std::size_t i = 0; i < corners.size(); ++i) {
      const cv::Point_<float> corner = corners[i] * scale;
      const bool canBeFound = patch.read(reference, corner) && patch.canBeFound(limits);
      for (std::size_t k = 0; k < to.size(); ++k) {
        searches[k] = {&images[k], level == top ? corner : tracks[k].positions[i] * 2.0f, false};
      }
      if (canBeFound) {
        patch.find(searches, limits);
      }
      for (std::size_t k = 0; k < to.size(); ++k) {
        tracks[k].positions[i] = searches[k].point;
        tracks[k].isTracked[i] = searches[k].isFound && patch.windowTouchesImage(images[k], searches[k].point) ? 1 : 0;
      }
    }
  }
  return tracks;
}

}  // namespace movra::vision::detail
