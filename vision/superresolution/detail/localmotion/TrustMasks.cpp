#include "vision/superresolution/detail/localmotion/TrustMasks.h"

#include <algorithm>

#include "vision/superresolution/detail/base/BoxFilter.h"
#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"
#include "vision/superresolution/detail/localmotion/RobustStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr int boxRadius = 3;
constexpr double noiseLimit = 3;       // standard deviations
constexpr double largestShare = 0.25;  // of a frame's noise that blurred frames may differ by

}  // namespace

TrustMasks::TrustMasks(const MotionFrame& givenReference, double givenNoise)
    : reference(givenReference),
      noise(givenNoise),
      width(givenReference.pyramid->level(0).values.width()),
      height(givenReference.pyramid->level(0).values.height()),
      gradients(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
  const PaddedImage& image = reference.pyramid->level(0).values;
  PaddedImage gradient(width, height);
  PaddedImage rows(width, height);
  for (int y = 0; y < height; ++y) {
    localMotionKernels().squaredGradientRow(image.row(y), image.row(y - 1), image.row(y + 1), width, gradient.row(y));
  }
  gradient.mirror();
  for (int y = -2; y < height + 2; ++y) {
    localMotionKernels().largestOfFive(gradient.row(y), width, rows.row(y));
  }
  for (int y = 0; y < height; ++y) {
    float* const out = gradients.data() + static_cast<std::ptrdiff_t>(y) * width;
    const float* const r[5] = {rows.row(y - 2), rows.row(y - 1), rows.row(y), rows.row(y + 1), rows.row(y + 2)};
    for (int x = 0; x < width; ++x) {
      out[x] = std::max({r[0][x], r[1][x], r[2][x], r[3][x], r[4][x]});
    }
  }
  BoxFilter(width).apply(gradients.data(), height, boxRadius, gradients.data());
}

void TrustMasks::mark(const MotionFrame& frame, const MotionField& field, double misalignment,
                      std::vector<char>& trusted) const {
  const PaddedImage& image = frame.pyramid->level(0).coefficients;
  const PaddedImage& values = reference.pyramid->level(0).values;
  const std::vector<int> breaks = field.breaks();
  std::vector<float> difference(gradients.size());
  trusted.assign(gradients.size(), 0);
  std::vector<float> sample;
  for (int y = 0; y < height; ++y) {
    float* const d = difference.data() + static_cast<std::ptrdiff_t>(y) * width;
    char* const inside = trusted.data() + static_cast<std::ptrdiff_t>(y) * width;
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
        inside[from + k] =
            x >= 0 && x <= static_cast<float>(width - 1) && z >= 0 && z <= static_cast<float>(height - 1);
      }
    }
    const float* const r = values.row(y);
    for (int x = 0; x < width; ++x) {
      d[x] -= r[x];
      if (inside[x] != 0 && (x + y) % 4 == 0) {
        sample.push_back(d[x]);
      }
    }
  }
  const RobustSpread spread = robustSpread(sample);
  for (std::size_t i = 0; i < difference.size(); ++i) {
    const float d = trusted[i] != 0 ? difference[i] - spread.median : 0.0f;
    difference[i] = d * d;
  }
  BoxFilter(width).apply(difference.data(), height, boxRadius, difference.data());
  const double deviation = std::min(static_cast<double>(spread.deviation), largestShare * noise);
  const float scale = static_cast<float>(misalignment * misalignment);
  const float allowed = static_cast<float>(noiseLimit * noiseLimit * deviation * deviation);
  for (std::size_t i = 0; i < difference.size(); ++i) {
    trusted[i] = trusted[i] != 0 && difference[i] <= scale * gradients[i] + allowed;
  }
}

}  // namespace movra::vision::detail
