#include "vision/superresolution/detail/fft/MixedRadix.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <tuple>
#include <utility>

#include "movra/Exception.h"

namespace movra::vision::detail {

namespace {

// Fills ifac: n, the number of its factors, the factors 4, a factor 2, the odd prime factors in rising order. The real passes rely on the
// odd factors being last.
void factorise(int n, int* ifac) {
  constexpr int mostFactors = 13;
  int* const factors = ifac + 2;
  int count = 0;
  int rest = n;
  const auto take = [&](int factor) {
    while (rest % factor == 0 && count < mostFactors) {
      factors[count++] = factor;
      rest /= factor;
    }
  };
  if (n < 1) {
    MOVRA_THROW("The length of a Fourier transform must be positive.");
  }
  take(4);
  take(2);
  for (int factor = 3; factor <= rest / factor; factor += 2) {
    take(factor);
  }
  if (rest > 1) {
    take(rest);
  }
  if (rest > 1) {
    MOVRA_THROW("The length of a Fourier transform has too many factors.");
  }
  ifac[0] = n;
  ifac[1] = count;
}

// exp(2 pi i t / n) for 0 <= t < n, by the sine and cosine of an angle of at most pi / 4.
std::pair<float, float> rootOfUnity(int t, int n) {
  const double pi = 3.14159265358979323846;
  const std::int64_t eighth = n;  // an eighth of the circle; t turns are 8 t
  std::int64_t angle = 8 * std::int64_t{t};
  const bool below = angle > 4 * eighth;
  if (below) {
    angle = 8 * eighth - angle;
  }
  const bool left = angle > 2 * eighth;
  if (left) {
    angle = 4 * eighth - angle;
  }
  const bool steep = angle > eighth;
  if (steep) {
    angle = 2 * eighth - angle;
  }

  const double radians = static_cast<double>(angle) * (pi / 4.0) / static_cast<double>(eighth);
  double re = std::cos(radians);
  double im = std::sin(radians);
  if (steep) {
    std::swap(re, im);
  }
  return {static_cast<float>(left ? -re : re), static_cast<float>(below ? -im : im)};
}

// The n-th roots of unity t = 1 ... count, as all passes read them.
void fillRoots(int n, int count, float* roots) {
  for (int t = 1; t <= count; ++t) {
    std::tie(roots[0], roots[1]) = rootOfUnity(t, n);
    roots += 2;
  }
}

// Where the tables begin, behind the scratch space.
template <typename Float>
Float* realRoots(int n, Float* wsave) {
  return wsave + n;
}

template <typename Float>
Float* complexRoots(int n, Float* wsave) {
  return wsave + 2 * std::ptrdiff_t{n};
}

void transform(FftKernels::Transform kernel, int n, float* data, std::ptrdiff_t count, float* scratch,
               const float* roots, const int* ifac) {
  const float* result = kernel(n, data, scratch, roots, ifac);
  if (result != data) {
    std::copy_n(result, count, data);
  }
}

}  // namespace

void prepareRealTransform(int n, float* wsave, int* ifac) {
  factorise(n, ifac);
  fillRoots(n, (n - 1) / 2, realRoots(n, wsave));
}

void prepareComplexTransform(int n, float* wsave, int* ifac) {
  factorise(n, ifac);
  fillRoots(n, n - 1, complexRoots(n, wsave));
}

void realForward(int n, float* r, float* wsave, const int* ifac) {
  transform(fftKernels().realForward, n, r, n, wsave, realRoots(n, wsave), ifac);
}

void realBackward(int n, float* r, float* wsave, const int* ifac) {
  transform(fftKernels().realBackward, n, r, n, wsave, realRoots(n, wsave), ifac);
}

void complexForward(int n, float* c, float* wsave, const int* ifac) {
  transform(fftKernels().complexForward, n, c, 2 * std::ptrdiff_t{n}, wsave, complexRoots(n, wsave), ifac);
}

void complexBackward(int n, float* c, float* wsave, const int* ifac) {
  transform(fftKernels().complexBackward, n, c, 2 * std::ptrdiff_t{n}, wsave, complexRoots(n, wsave), ifac);
}

float* realForwardBatch(int n, float* r, float* scratch, const float* wsave, const int* ifac) {
  return fftKernels().realForwardBatch(n, r, scratch, realRoots(n, wsave), ifac);
}

float* realBackwardBatch(int n, float* r, float* scratch, const float* wsave, const int* ifac) {
  return fftKernels().realBackwardBatch(n, r, scratch, realRoots(n, wsave), ifac);
}

float* complexForwardBatch(int n, float* c, float* scratch, const float* wsave, const int* ifac) {
  return fftKernels().complexForwardBatch(n, c, scratch, complexRoots(n, wsave), ifac);
}

float* complexBackwardBatch(int n, float* c, float* scratch, const float* wsave, const int* ifac) {
  return fftKernels().complexBackwardBatch(n, c, scratch, complexRoots(n, wsave), ifac);
}

}  // namespace movra::vision::detail
