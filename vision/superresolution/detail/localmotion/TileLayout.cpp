#include "vision/superresolution/detail/localmotion/TileLayout.h"

#include <algorithm>
#include <cstdint>

namespace movra::vision::detail {

namespace {

constexpr int unusedMargin = 3;  // outermost pixels of a tile, which have no weight

}  // namespace

TileAxis::TileAxis(int wholeExtent, int core, int givenMargin) : extent(wholeExtent), margin(givenMargin) {
  const int count = std::max(1, (2 * extent + core) / (2 * core));
  int longest = 0;
  for (int i = 0; i <= count; ++i) {
    edges.push_back(static_cast<int>(std::int64_t{extent} * i / count));
    longest = i == 0 ? 0 : std::max(longest, edges.back() - edges[edges.size() - 2]);
  }
  length_ = std::min(extent, longest + 2 * margin);
  fade = std::max(1, std::min(margin - unusedMargin, extent / count / 2));
}

int TileAxis::begin(int tile) const {
  return std::clamp(coreBegin(tile) - margin, 0, extent - length_);
}

float TileAxis::weight(int tile, int place) const {
  // Rising edge between tile - 1 and tile; the falling one is 1 less the next tile's.
  const auto rise = [&](int edge) {
    if (edge == 0) {
      return 1.0f;
    }
    const float t =
        (static_cast<float>(place) + 0.5f - 2.0f * static_cast<float>(edge - fade)) / (4.0f * static_cast<float>(fade));
    const float s = std::clamp(t, 0.0f, 1.0f);
    return s * s * (3.0f - 2.0f * s);
  };
  const float rising = rise(coreBegin(tile));
  const float falling = coreEnd(tile) == extent ? 1.0f : 1.0f - rise(coreEnd(tile));
  return rising * falling;
}

}  // namespace movra::vision::detail
