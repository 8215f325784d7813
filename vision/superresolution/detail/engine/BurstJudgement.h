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

/// Header over a mask of `rows` x `columns`.
template <class Mask>
cv::Mat asMatrix(const Mask* mask, int rows, int columns) {
  return {rows, columns, std::is_same_v<Mask, char> ? CV_8SC1 : CV_32FC1, const_cast<Mask*>(mask)};
}

/// Verdict on a registration. displacementTooLarge outranks tooManyMaskedPixels.
enum class Verdict { good, tooManyMaskedPixels, displacementTooLarge };

/// Judges the complete shifts and the masks, height x width each, of `count` registered frames.
template <class Mask>
Verdict judgeRegistration(int count, const std::vector<cv::Point_<float>>& shifts, Mask* const* masks, int height,
                          int width) {
  Verdict verdict = Verdict::good;
  for (int i = 0; i < count; ++i) {
    const cv::Point_<float>& shift = shifts[static_cast<std::size_t>(i)];
    if (isLargeDisplacement(shift.x, shift.y, height)) {
      return Verdict::displacementTooLarge;
    }
    if (isMaskedTooMuch(cv::sum(asMatrix(masks[i], height, width))[0], height, width)) {
      verdict = Verdict::tooManyMaskedPixels;
    }
  }
  return verdict;
}

/// Frames per position that count as full coverage at this factor: (int)(factor^2 + 1).
int coverageLimit(float factor);

/// The same, fixed by the first call in the process for this `Kind` of engine, whatever the factor of later engines.
template <class Kind>
int coverageLimitOfFirst(float factor) {
  static const int limit = coverageLimit(factor);
  return limit;
}

/// Sum over `size` positions of the number of frames with a non-zero mask, up to `limit` each.
template <class Mask>
std::int64_t coverage(int frameCount, const Mask* const* masks, int size, int limit) {
  std::int64_t sum = 0;
  if (frameCount <= limit) {  // nothing to limit: frame by frame
    for (int k = 0; k < frameCount; ++k) {
      sum += cv::countNonZero(asMatrix(masks[k], 1, size));
    }
    return sum;
  }
  constexpr int blockSize = 1024;  // counts stay in the first-level cache while the masks go by
  int covered[blockSize];
  for (int begin = 0; begin < size; begin += blockSize) {
    const int count = std::min(blockSize, size - begin);
    std::fill_n(covered, count, 0);
    for (int k = 0; k < frameCount; ++k) {
      const Mask* mask = masks[k] + begin;
      for (int p = 0; p < count; ++p) {
        covered[p] += mask[p] != Mask{0} ? 1 : 0;
      }
    }
    for (int p = 0; p < count; ++p) {
      sum += std::min(covered[p], limit);
    }
  }
  return sum;
}

/// The sr factor, 0.75 ... 2: how well the burst covers the high-resolution grid. For each of `size` positions, the
/// frames with a non-zero mask count up to `limit`. The divisor is that of factor 2, whatever the factor.
template <class Mask>
float srFactor(int frameCount, const Mask* const* masks, int size, int limit) {
  const std::int64_t beyondFirst = coverage(frameCount, masks, size, limit) - size;
  return static_cast<float>(beyondFirst) / static_cast<float>(4 * std::int64_t{size}) + 1.0f;
}

}  // namespace movra::vision::detail
