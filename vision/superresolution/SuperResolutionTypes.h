#pragma once

#include <cstdint>

namespace movra::vision {

/// A point or shift of the reference engine: x to the right, y downward, in pixels.
struct PointF {
  float x = 0;
  float y = 0;
};

/// A whole-pixel point or shift of the reference engine.
struct PointI {
  int x = 0;
  int y = 0;
};

/// Flag values: bit patterns of floats with which a camera marks pixels. They are subnormal numbers, so they are
/// copied and compared as integers only; 131 is not a flag.
namespace flag {
constexpr std::uint32_t overRange = 129;
constexpr std::uint32_t underRange = 130;
constexpr std::uint32_t invalid = 132;
constexpr std::uint32_t invalidToo = 133;
}  // namespace flag

}  // namespace movra::vision
