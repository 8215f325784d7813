#include "vision/superresolution/detail/localmotion/LayerSplit.h"

#include <utility>

#include "vision/superresolution/detail/base/BoxFilter.h"
#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"
#include "vision/superresolution/detail/localmotion/RobustStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr int layerRadius = 3;

/// D before its median is taken out, and where the frame has a pixel.
std::vector<float> compare(const MotionFrame& reference, const MotionFrame& frame, const MotionField& field,
                           std::vector<char>& inside) {
  const PaddedImage& image = frame.pyramid->level(0).coefficients;
  const PaddedImage& values = reference.pyramid->level(0).values;
  const int width = values.width(), height = values.height();
  const std::vector<int> breaks = field.breaks();
  std::vector<float> difference(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  inside.assign(difference.size(), 0);
  for (int y = 0; y < height; ++y) {
    float* const d = difference.data() + static_cast<std::ptrdiff_t>(y) * width;
    char* const insideRow = inside.data() + static_cast<std::ptrdiff_t>(y) * width;
    for (std::size_t i = 0; i + 1 < breaks.size(); ++i) {
      const int from = breaks[i], count = breaks[i + 1] - from;
      if (count <= 0) {
        continue;
      }
      const AffineMotion::Shift a = field.shiftAt(from, y), b = field.shiftAt(from + count, y);
      const float u = static_cast<float>(from + a.x), v = static_cast<float>(y + a.y);
      const float du = static_cast<float>(1 + (b.x - a.x) / count), dv = static_cast<float>((b.y - a.y) / count);
      localMotionKernels().sampleLine(image.row(0), image.stride(), width, height, u, v, du, dv, count, d + from);
      for (int k = 0; k < count; ++k) {
        const float x = u + static_cast<float>(k) * du, z = v + static_cast<float>(k) * dv;
        insideRow[from + k] =
            x >= 0 && x <= static_cast<float>(width - 1) && z >= 0 && z <= static_cast<float>(height - 1);
      }
    }
    const float* const r = values.row(y);
    for (int x = 0; x < width; ++x) {
      d[x] -= r[x];
    }
  }
  return difference;
}

/// Of every fourth pixel inside, staggered from row to row.
RobustSpread spreadOf(const std::vector<float>& difference, const std::vector<char>& inside, int width) {
  std::vector<float> sample;
  const int height = static_cast<int>(difference.size()) / width;
  for (int y = 0; y < height; ++y) {
    for (int x = (4 - y % 4) % 4; x < width; x += 4) {
      const std::size_t i = static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
      if (inside[i] != 0) {
        sample.push_back(difference[i]);
      }
    }
  }
  return robustSpread(sample);
}

}  // namespace

LayerSplit splitIntoLayers(const MotionFrame& reference, const MotionFrame& frame,
                           const std::vector<MotionLayer>& layers) {
  const PaddedImage& values = reference.pyramid->level(0).values;
  RobustSpread spread{};
  std::vector<float> least;
  for (std::size_t l = 0; l < layers.size(); ++l) {
    std::vector<char>& inside = *layers[l].where;
    std::vector<float> mismatch = compare(reference, frame, *layers[l].field, inside);
    if (l == 0) {
      spread = spreadOf(mismatch, inside, values.width());
    }
    for (std::size_t i = 0; i < mismatch.size(); ++i) {
      const float d = inside[i] != 0 ? mismatch[i] - spread.median : 0.0f;
      mismatch[i] = d * d;
    }
    BoxFilter(values.width()).apply(mismatch.data(), values.height(), layerRadius, mismatch.data());
    if (l == 0) {
      least = std::move(mismatch);
      continue;
    }
    for (std::size_t i = 0; i < mismatch.size(); ++i) {
      bool elsewhere = false;
      for (std::size_t m = 0; m < l; ++m) {
        elsewhere = elsewhere || (*layers[m].where)[i] != 0;
      }
      inside[i] = inside[i] != 0 && (!elsewhere || mismatch[i] < least[i]);
      if (inside[i] != 0) {
        least[i] = mismatch[i];
        for (std::size_t m = 0; m < l; ++m) {
          (*layers[m].where)[i] = 0;
        }
      }
    }
  }
  return {std::move(least), spread.deviation};
}

}  // namespace movra::vision::detail
