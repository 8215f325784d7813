#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// True when a shift is longer than a tenth of the frame's height (integer division) on either axis; the height counts
/// for both.
bool isLargeDisplacement(float x, float y, int height);

/// True when at least half of the mask's weight is missing: `sum` over `rows` x `columns` pixels.
bool isMaskedTooMuch(double sum, int rows, int columns);

/// Number of frames that are needed at a position for full coverage, of a first engine with this factor.
int coverageLimit(float factor);

/// The sr factor, 0.75 ... 2: how well the burst covers the high-resolution grid. For each of `size` positions, the
/// frames with a non-zero mask count up to `limit`. The divisor is that of factor 2, whatever the factor.
template <class Mask>
float srFactor(int frameCount, const Mask* const* masks, int size, int limit) {
  std::int64_t sum = 0;
  for (int p = 0; p < size; ++p) {
    int covered = 0;
    for (int k = 0; k < frameCount; ++k) {
      covered += masks[k][p] != Mask{0} ? 1 : 0;
    }
    sum += (covered < limit ? covered : limit) - 1;
  }
  return static_cast<float>(static_cast<float>(sum) / static_cast<float>(4 * std::int64_t{size})) + 1.0f;
}

}  // namespace movra::vision::detail
