#pragma once

#include <cstdint>

#include "vision/superresolution/SuperResolutionTypes.h"

// Pixel values compared as 32-bit integers. Flag values are subnormal floats: a host that treats subnormals
// as zeros would confuse them with each other and with 0, and integers also order the same on every
// instruction set.
//
// Functions here are `static`, so that each copy of a kernel source keeps its own.

namespace movra::vision::detail {

/// The value's bit pattern.
static inline std::uint32_t bitsOf(const float& value) {
  std::uint32_t bits;
  __builtin_memcpy(&bits, &value, sizeof bits);
  return bits;
}

/// Writes a bit pattern into a pixel.
static inline void setBits(float& value, std::uint32_t bits) {
  __builtin_memcpy(&value, &bits, sizeof bits);
}

/// Whether a high-resolution pixel with these bits is marked for recomputation.
static inline bool isMarked(std::uint32_t bits) {
  return (bits == flag::overRange) | (bits == flag::underRange) | (bits == flag::invalid);
}

/// Whether a camera's pixel with these bits is flagged.
static inline bool isFlag(std::uint32_t bits) {
  return isMarked(bits) | (bits == flag::invalidAlternative);
}

/// The value's place in the order of floats: a > b for numbers exactly where the key is greater, apart from
/// -0, which comes directly below +0. NaN lies outside the infinities. A positive value's key equals its bit
/// pattern.
static inline std::int32_t keyOf(const float& value) {
  std::int32_t bits;
  __builtin_memcpy(&bits, &value, sizeof bits);
  return bits ^ ((bits >> 31) & 0x7fffffff);
}

/// The value with the given key.
static inline float valueOf(std::int32_t key) {
  const std::int32_t bits = key ^ ((key >> 31) & 0x7fffffff);
  float value;
  __builtin_memcpy(&value, &bits, sizeof value);
  return value;
}

constexpr std::int32_t keyOfNegativeZero = -1;

}  // namespace movra::vision::detail
