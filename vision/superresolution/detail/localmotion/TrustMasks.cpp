#include "vision/superresolution/detail/localmotion/TrustMasks.h"

#include <algorithm>

#include "vision/superresolution/detail/base/BoxFilter.h"
#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"

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

void TrustMasks::mark(const MotionFrame& frame, const std::vector<MotionLayer>& layers, double misalignment) const {
  const LayerSplit split = splitIntoLayers(reference, frame, layers);
  const double deviation = std::min(static_cast<double>(split.deviation), largestShare * noise);
  const float scale = static_cast<float>(misalignment * misalignment);
  const float allowed = static_cast<float>(noiseLimit * noiseLimit * deviation * deviation);
  for (const MotionLayer& layer : layers) {
    std::vector<char>& trusted = *layer.where;
    for (std::size_t i = 0; i < trusted.size(); ++i) {
      trusted[i] = trusted[i] != 0 && split.mismatch[i] <= scale * gradients[i] + allowed;
    }
  }
}

}  // namespace movra::vision::detail
