#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// True when a shift is longer than a tenth of the frame's height (integer division) on either axis; the height counts
/// for both.
bool isLargeDisplacement(float x, float y, int height);

/// True when at least half of the mask's weight is missing: `sum` over `rows` x `columns` pixels.
bool isMaskedTooMuch(double sum, int rows, int columns);

/// What a caller should be warned of; the larger fault counts.
enum class Verdict { good, tooManyMaskedPixels, displacementTooLarge };

/// Judges the complete shifts and the masks, height x width each, of `count` registered frames.
template <class Mask>
Verdict judgeRegistration(int count, const std::vector<cv::Point_<float>>& shifts, Mask* const* masks,
                          int height, int width) {
  Verdict verdict = Verdict::good;
  for (int i = 0; i < count; ++i) {
    const cv::Point_<float>& shift = shifts[static_cast<std::size_t>(i)];
    const cv::Mat mask(height, width, std::is_same_v<Mask, char> ? CV_8SC1 : CV_32FC1, masks[i]);
    if (isLargeDisplacement(shift.x, shift.y, height)) {
      return Verdict::displacementTooLarge;
    }
    if (isMaskedTooMuch(cv::sum(mask)[0], height, width)) {
      verdict = Verdict::tooManyMaskedPixels;
    }
  }
  return verdict;
}

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
