#pragma once

#include <cmath>

namespace movra::vision::detail {

/// The error function by S. Winitzki's closed form ("A handy approximation for the error function and its
/// inverse", 2008) with 4/pi and a = 0.1400123 as floats; off by less than 3.5e-4 everywhere.
///
/// Gaussian kernels are built from this, not from a library's erf, so that they are the same everywhere.
/// approximateErf(0) is -0.
inline float approximateErf(float x) {
  const float sign = x > 0.0f ? 1.0f : -1.0f;
  // The formula gives exactly 1 from here on, and inf / inf where x * x overflows.
  if (std::abs(x) > 10.0f) {
    return sign;
  }
  const float x2 = x * x;
  return sign * std::sqrt(1.0f - std::exp(-x2 * (1.2732395f + 0.1400123f * x2) / (1.0f + 0.1400123f * x2)));
}

}  // namespace movra::vision::detail
