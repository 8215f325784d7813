#pragma once

#include <cstdint>
#include <cstring>

namespace movra::vision {

/// A point or shift of the reference engine: x to the right, y downward, in pixels.
struct PointF {
  PointF() = default;
  /// Column x_, row y_.
  PointF(float x_, float y_) : x(x_), y(y_) {}

  float x = 0;
  float y = 0;
};

/// A whole-pixel point or shift of the reference engine.
struct PointI {
  PointI() = default;
  /// Column x_, row y_.
  PointI(int x_, int y_) : x(x_), y(y_) {}

  int x = 0;
  int y = 0;
};

/// Flag values: bit patterns of floats with which a camera marks pixels. They are subnormal numbers, so they are
/// copied and compared as integers only; 131 is not a flag. A flagged pixel of a frame is replaced by the mean of its
/// neighbours, or else by the frame's maximum (overRange), its minimum (underRange) or 0 (the others). A pixel of a result
/// that no frame backs with a good one holds overRange, underRange or, for any other defect, invalid.
namespace flag {
constexpr std::uint32_t overRange = 129;
constexpr std::uint32_t underRange = 130;
constexpr std::uint32_t invalid = 132;
constexpr std::uint32_t invalidAlternative = 133;  // what some cameras send for an invalid pixel; no result holds it
}  // namespace flag

/// Whether a pixel of a frame or of a result holds a flag.
inline bool isFlagged(const float& pixel) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &pixel, sizeof bits);
  return bits == flag::overRange || bits == flag::underRange || bits == flag::invalid ||
         bits == flag::invalidAlternative;
}

}  // namespace movra::vision
