#pragma once

#include <algorithm>
#include <cstdint>

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
  constexpr int blockSize = 1024;  // counts stay in the first-level cache while the masks go by
  int covered[blockSize];
  std::int64_t sum = 0;
  for (int begin = 0; begin < size; begin += blockSize) {
    const int count = std::min(blockSize, size - begin);
    std::fill_n(covered, count, 0);
    for (int k = 0; k < frameCount; ++k) {
      const Mask* mask = masks[k] + begin;
      for (int p = 0; p < count; ++p) {
        covered[p] += mask[p] != Mask{0} ? 1 : 0;
      }
    }
    int blockSum = 0;
    for (int p = 0; p < count; ++p) {
      blockSum += std::min(covered[p], limit) - 1;
    }
    sum += blockSum;
  }
  return static_cast<float>(sum) / static_cast<float>(4 * std::int64_t{size}) + 1.0f;
}

}  // namespace movra::vision::detail
