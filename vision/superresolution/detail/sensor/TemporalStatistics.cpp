#include "vision/superresolution/detail/sensor/TemporalStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "vision/superresolution/detail/base/Mirror.h"
#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/LocalMedian.h"
#include "vision/superresolution/detail/sensor/SensorKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int radius = 3;
constexpr std::size_t neighbours = (2 * radius + 1) * (2 * radius + 1) - 1;
constexpr std::size_t typicalRank = 33;  // 0.7 of 47, rounded

/// Frames without holes; those that have none are used as they are.
class WholeFrames {
 public:
  explicit WholeFrames(const FrameStack& frames) {
    for (int k = 0; k < frames.count; ++k) {
      const float* frame = frames.frames[k];
      if (!isWhole(frame, frames.pixels())) {
        filled.emplace_back(frame, frame + frames.pixels());
        fillByLocalMedian(filled.back().data(), frames.width, frames.height, nullptr);
        frame = filled.back().data();  // stays there when the list grows
      }
      pointers.push_back(frame);
    }
  }

  const float* operator[](int k) const { return pointers[static_cast<std::size_t>(k)]; }

 private:
  std::vector<std::vector<float>> filled;
  std::vector<const float*> pointers;
};

// A row with a mirrored element at each end.
void padRow(const float* row, int width, float* out) {
  std::copy_n(row, width, out + 1);
  out[0] = row[mirrored(-1, width)];
  out[width + 1] = row[mirrored(width, width)];
}

}  // namespace

TemporalStatistics temporalStatisticsOf(const FrameStack& stack) {
  const std::vector<float> zeros(stack.pixels(), 0.0f);
  TemporalStatistics result{zeros, zeros, zeros, zeros};
  std::vector<float> scratch(static_cast<std::size_t>(stack.count) * temporalLanes);
  for (std::size_t i = 0; i < stack.pixels(); i += temporalLanes) {
    const std::size_t lanes = std::min<std::size_t>(temporalLanes, stack.pixels() - i);
    sensorKernels().temporalStatistics(stack.frames, static_cast<std::ptrdiff_t>(i), stack.count,
                                       static_cast<int>(lanes), scratch.data(), &result.median[i],
                                       &result.medianOfAbsolute[i], &result.secondLargest[i], &result.largest[i]);
  }
  return result;
}

MedianDetail medianDetail(const FrameStack& frames) {
  const WholeFrames whole(frames);
  const auto width = static_cast<std::size_t>(frames.width);
  const auto count = static_cast<std::size_t>(frames.count);
  const std::size_t padded = width + 2;
  std::vector<float> rows(3 * padded);
  std::vector<float> details(count * width);
  std::vector<const float*> pointers;
  for (std::size_t k = 0; k < count; ++k) {
    pointers.push_back(&details[k * width]);
  }
  std::vector<float> scratch(count * temporalLanes);
  MedianDetail result{std::vector<float>(frames.pixels()), std::vector<float>(frames.pixels())};
  for (int y = 0; y < frames.height; ++y) {
    for (std::size_t k = 0; k < count; ++k) {
      for (int j = -1; j <= 1; ++j) {
        const auto from = static_cast<std::size_t>(mirrored(y + j, frames.height));
        padRow(whole[static_cast<int>(k)] + from * width, frames.width,
               &rows[static_cast<std::size_t>(j + 1) * padded]);
      }
      sensorKernels().neighbourMedianDifference(&rows[1], &rows[padded + 1], &rows[2 * padded + 1], frames.width,
                                                &details[k * width]);
    }
    for (std::size_t x = 0; x < width; x += temporalLanes) {
      const std::size_t lanes = std::min<std::size_t>(temporalLanes, width - x);
      const std::size_t at = static_cast<std::size_t>(y) * width + x;
      sensorKernels().temporalMedian(pointers.data(), static_cast<std::ptrdiff_t>(x), frames.count,
                                     static_cast<int>(lanes), scratch.data(), &result.median[at], &result.weakest[at]);
    }
  }
  return result;
}

float typicalAround(const std::vector<float>& image, int width, int height, int x, int y) {
  float values[neighbours];
  std::size_t count = 0;
  for (int v = -radius; v <= radius; ++v) {
    const auto row = static_cast<std::size_t>(mirrored(y + v, height)) * static_cast<std::size_t>(width);
    for (int u = -radius; u <= radius; ++u) {
      if (u != 0 || v != 0) {
        values[count++] = std::abs(image[row + static_cast<std::size_t>(mirrored(x + u, width))]);
      }
    }
  }
  std::nth_element(values, values + typicalRank, values + neighbours);
  return values[typicalRank];
}

}  // namespace movra::vision::detail
