#pragma once

#include <cstdint>
#include <limits>
#include <new>

namespace movra::vision::detail {

/// `value` when it can be the length of an array; otherwise throws std::bad_array_new_length.
inline int checkedSize(std::int64_t value) {
  if (value < 0 || value > std::numeric_limits<int>::max()) {
    throw std::bad_array_new_length();
  }
  return static_cast<int>(value);
}

/// Size of the padded grid in one direction under the same condition; 0 if there is no size and no tap.
inline int checkedPaddedSize(int hrSize, int psfSize) {
  return checkedSize(hrSize == 0 && psfSize == 0 ? 0 : std::int64_t{checkedSize(hrSize)} + checkedSize(psfSize) - 1);
}

/// rows * columns under the same condition, for each of them too.
inline int checkedArea(int rows, int columns) {
  return checkedSize(std::int64_t{checkedSize(rows)} * checkedSize(columns));
}

/// Truncates towards zero; NaN gives 0, values beyond the range of int its ends.
inline int truncateToInt(float value) {
  if (!(value > -2147483648.0f)) {
    return value < 0 ? std::numeric_limits<int>::min() : 0;
  }
  return value < 2147483648.0f ? static_cast<int>(value) : std::numeric_limits<int>::max();
}

/// extent * factor in float, truncated: the size of a high-resolution image.
inline int scaledSize(int extent, float factor) {
  return truncateToInt(static_cast<float>(extent) * factor);
}

}  // namespace movra::vision::detail
