#include "vision/superresolution/detail/sensor/LocalMedian.h"

#include <algorithm>
#include <cstddef>

#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"

namespace movra::vision::detail {

namespace {

class LocalMedianFill {
 public:
  LocalMedianFill(float* image_, int width_, int height_, const unsigned char* bad_)
      : image(image_), width(width_), height(height_), bad(bad_) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(width) * static_cast<std::size_t>(height); ++i) {
      if (isBad(i)) {
        holes.push_back(i);
      }
    }
  }

  void run() {
    for (const std::size_t hole : holes) {
      values.push_back(replacement(hole));
    }
    for (std::size_t i = 0; i < holes.size(); ++i) {
      image[holes[i]] = values[i];
    }
  }

 private:
  bool isBad(std::size_t i) const { return (bad != nullptr && bad[i] != 0) || !isMeasured(image[i]); }

  float replacement(std::size_t hole) {
    const int x = static_cast<int>(hole % static_cast<std::size_t>(width));
    const int y = static_cast<int>(hole / static_cast<std::size_t>(width));
    for (const int radius : {1, 2, 4}) {
      gather(x, y, radius);
      if (near.size() >= 3 || (radius == 4 && !near.empty())) {
        return middle();
      }
    }
    return medianOfImage();
  }

  void gather(int x, int y, int radius) {
    near.clear();
    for (int v = std::max(0, y - radius); v <= std::min(height - 1, y + radius); ++v) {
      for (int u = std::max(0, x - radius); u <= std::min(width - 1, x + radius); ++u) {
        const std::size_t i =
            static_cast<std::size_t>(v) * static_cast<std::size_t>(width) + static_cast<std::size_t>(u);
        if (!isBad(i)) {
          near.push_back(image[i]);
        }
      }
    }
  }

  float middle() {
    std::sort(near.begin(), near.end());
    const std::size_t half = near.size() / 2;
    return near.size() % 2 == 1 ? near[half] : 0.5f * near[half - 1] + 0.5f * near[half];
  }

  float medianOfImage() {
    if (!hasWhole) {
      std::vector<float> good;
      for (std::size_t i = 0; i < static_cast<std::size_t>(width) * static_cast<std::size_t>(height); ++i) {
        if (!isBad(i)) {
          good.push_back(image[i]);
        }
      }
      whole = medianOf(good);
      hasWhole = true;
    }
    return whole;
  }

  float* image;
  int width;
  int height;
  const unsigned char* bad;
  std::vector<std::size_t> holes;
  std::vector<float> values;  // for the holes
  std::vector<float> near;
  bool hasWhole = false;
  float whole = 0;
};

}  // namespace

void fillByLocalMedian(float* image, int width, int height, const unsigned char* bad) {
  LocalMedianFill(image, width, height, bad).run();
}

bool isWhole(const float* image, std::size_t pixels) {
  int unmeasured = 0;
  for (std::size_t i = 0; i < pixels; ++i) {
    unmeasured |= isMeasured(image[i]) ? 0 : 1;
  }
  return unmeasured == 0;
}

}  // namespace movra::vision::detail
