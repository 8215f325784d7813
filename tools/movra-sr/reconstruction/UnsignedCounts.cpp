#include "tools/movra-sr/reconstruction/UnsignedCounts.h"

#include <algorithm>

namespace movra::tool {

bool holdsUnsignedCounts(const cv::Mat_<float>& image) {
  constexpr double defectShare = 0.01;
  const auto high = std::count_if(image.begin(), image.end(),
                                  [](float value) { return value >= unsignedMiddle && value < 2 * unsignedMiddle; });
  return static_cast<double>(high) > defectShare * static_cast<double>(image.total()) &&
         std::none_of(image.begin(), image.end(), [](float value) { return value < 0; });
}

bool holdUnsignedCounts(const std::vector<Frame>& frames) {
  return std::any_of(frames.begin(), frames.end(),
                     [](const Frame& frame) { return holdsUnsignedCounts(frame.pixels); });
}

}  // namespace movra::tool
