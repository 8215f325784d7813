#pragma once

#include <cstddef>
#include <cstdint>

namespace movra::vision::detail {

/// Keys (ValueKey.h) of the smallest and the largest valid value. Zero lies between them.
struct ValidRange {
  std::int32_t lowest;
  std::int32_t highest;
};

/// What a pass over pixels has found so far: the keys of the smallest and the largest valid value, and the
/// number of pixels that are no valid value (flagged, NaN, infinite or out of range).
struct ValueScan {
  std::int32_t smallest;
  std::int32_t largest;
  std::int64_t defects;
};

/// Passes over the pixels of a row.
struct FrameKernels {
  /// Adds `count` pixels to `scan`.
  void (*scanValues)(const float* pixels, std::ptrdiff_t count, ValidRange valid, ValueScan* scan);

  /// The number of pixels that maskBadPixel marked (129, 130 or 132).
  std::ptrdiff_t (*countMarked)(const float* pixels, std::ptrdiff_t count);
};

const FrameKernels& frameKernels();

}  // namespace movra::vision::detail
