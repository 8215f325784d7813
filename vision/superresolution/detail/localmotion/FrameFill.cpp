#include "vision/superresolution/detail/localmotion/FrameFill.h"

#include <algorithm>
#include <cstddef>

#include "vision/superresolution/detail/localmotion/RobustStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr int blurReach = 8;  // pixels around a hole whose blurred values are made of it

/// Bridges the parts of a row that are holes; a row of holes takes the values of `above`.
void bridge(const char* known, const float* above, int width, float* row) {
  int before = -1;
  for (int x = 0; x <= width; ++x) {
    if (x < width && known[x] == 0) {
      continue;
    }
    for (int i = before + 1; i < x; ++i) {
      if (before < 0 && x == width) {
        row[i] = above != nullptr ? above[i] : 0.0f;
      } else if (before < 0) {
        row[i] = row[x];
      } else if (x == width) {
        row[i] = row[before];
      } else {
        const float t = static_cast<float>(i - before) / static_cast<float>(x - before);
        row[i] = (1.0f - t) * row[before] + t * row[x];
      }
    }
    before = x;
  }
}

}  // namespace

bool fillBadPixels(const std::vector<char>& good, int width, int height, std::vector<float>& frame,
                   std::vector<unsigned char>& usable) {
  usable.clear();
  std::vector<char> known(good);
  std::vector<float> neighbours;
  bool holes = false;
  std::size_t goodOnes = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::ptrdiff_t i = static_cast<std::ptrdiff_t>(y) * width + x;
      if (good[static_cast<std::size_t>(i)] != 0) {
        ++goodOnes;
        continue;
      }
      bool filled = false;
      for (int radius = 1; radius <= 4 && !filled; radius *= 2) {
        neighbours.clear();
        for (int v = std::max(0, y - radius); v <= std::min(height - 1, y + radius); ++v) {
          for (int u = std::max(0, x - radius); u <= std::min(width - 1, x + radius); ++u) {
            const std::size_t j =
                static_cast<std::size_t>(v) * static_cast<std::size_t>(width) + static_cast<std::size_t>(u);
            if (good[j] != 0) {
              neighbours.push_back(frame[j]);
            }
          }
        }
        if (neighbours.size() >= 3) {
          frame[static_cast<std::size_t>(i)] = medianOf(neighbours);
          known[static_cast<std::size_t>(i)] = 1;
          filled = true;
        }
      }
      holes = holes || !filled;
    }
  }
  if (goodOnes == 0) {
    return false;
  }
  if (!holes) {
    return true;
  }
  // The first rows may be holes from end to end: they take the first row that is not.
  const auto rowIsHole = [&](int y) {
    const auto begin = known.begin() + static_cast<std::ptrdiff_t>(y) * width;
    return std::find(begin, begin + width, 1) == begin + width;
  };
  int firstRow = 0;
  while (rowIsHole(firstRow)) {
    ++firstRow;
  }
  for (int y = firstRow; y < height; ++y) {
    float* const row = frame.data() + static_cast<std::ptrdiff_t>(y) * width;
    bridge(known.data() + static_cast<std::ptrdiff_t>(y) * width, y > firstRow ? row - width : nullptr, width, row);
  }
  for (int y = 0; y < firstRow; ++y) {
    std::copy_n(frame.data() + static_cast<std::ptrdiff_t>(firstRow) * width, width,
                frame.data() + static_cast<std::ptrdiff_t>(y) * width);
  }
  usable.assign(frame.size(), 1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (known[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] != 0) {
        continue;
      }
      for (int v = std::max(0, y - blurReach); v <= std::min(height - 1, y + blurReach); ++v) {
        std::fill(usable.begin() + static_cast<std::ptrdiff_t>(v) * width + std::max(0, x - blurReach),
                  usable.begin() + static_cast<std::ptrdiff_t>(v) * width + std::min(width, x + blurReach + 1),
                  static_cast<unsigned char>(0));
      }
    }
  }
  return true;
}

}  // namespace movra::vision::detail
