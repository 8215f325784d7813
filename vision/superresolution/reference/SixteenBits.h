#pragma once

#include <cmath>
#include <cstdint>

namespace movra::vision::detail {

/// Truncates toward zero and takes the low 16 bits as a two's complement number: 70000.7 gives 4464. Values that are not
/// finite give 0.
inline short lowSixteenBits(float value) {
  const bool fits = std::fabs(value) < 9223372036854775808.0f;  // from 2^63 on, floats are multiples of 2^16
  return static_cast<short>(static_cast<std::uint16_t>(fits ? static_cast<std::int64_t>(value) : 0));
}

}  // namespace movra::vision::detail
