#include "vision/superresolution/detail/registration/SpectrumKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

constexpr int blockSize = 16;

struct Complex {
  float re;
  float im;
};

// out[k] = term(a[k], b[k]) for up to a block of bins. Their real and imaginary parts are taken apart first: where it
// finds them side by side, g++ 12.2 makes fused multiply-adds of complex products (vfmaddsub) in spite of
// -ffp-contract=off.
template <class Term>
inline void block(const float* __restrict a, const float* __restrict b, int count, float* __restrict out, Term term) {
  float aRe[blockSize] = {};
  float aIm[blockSize] = {};
  float bRe[blockSize] = {};
  float bIm[blockSize] = {};
  for (int l = 0; l < count; ++l) {
    aRe[l] = a[2 * l];
    aIm[l] = a[2 * l + 1];
    bRe[l] = b[2 * l];
    bIm[l] = b[2 * l + 1];
  }
  float re[blockSize];
  float im[blockSize];
  for (int l = 0; l < blockSize; ++l) {
    const Complex value = term({aRe[l], aIm[l]}, {bRe[l], bIm[l]});
    re[l] = value.re;
    im[l] = value.im;
  }
  for (int l = 0; l < count; ++l) {
    out[2 * l] = re[l];
    out[2 * l + 1] = im[l];
  }
}

template <class Term>
inline void forEachBin(const float* a, const float* b, int bins, float* out, Term term) {
  int k = 0;
  for (; k + blockSize <= bins; k += blockSize) {
    block(a + 2 * k, b + 2 * k, blockSize, out + 2 * k, term);
  }
  block(a + 2 * k, b + 2 * k, bins - k, out + 2 * k, term);
}

void multiplyByConjugate(const float* a, const float* b, int bins, float* out) {
  forEachBin(a, b, bins, out, [](Complex s, Complex g) {
    return Complex{s.re * g.re + s.im * g.im, s.im * g.re - s.re * g.im};
  });
}

void crossPower(const float* a, const float* b, int bins, float* out) {
  forEachBin(a, b, bins, out, [](Complex ref, Complex frame) {
    const float magnitude =
        __builtin_sqrtf((ref.re * ref.re + ref.im * ref.im) * (frame.re * frame.re + frame.im * frame.im));
    return Complex{(ref.re * frame.re + ref.im * frame.im) / magnitude,
                   (ref.re * frame.im - ref.im * frame.re) / magnitude};
  });
}

float largest(const float* __restrict values, int count) {
  float best[blockSize];
  for (int l = 0; l < blockSize; ++l) {
    best[l] = values[0];
  }
  int i = 0;
  for (; i + blockSize <= count; i += blockSize) {
    for (int l = 0; l < blockSize; ++l) {
      best[l] = values[i + l] > best[l] ? values[i + l] : best[l];
    }
  }
  float result = best[0];
  for (int l = 1; l < blockSize; ++l) {
    result = best[l] > result ? best[l] : result;
  }
  for (; i < count; ++i) {
    result = values[i] > result ? values[i] : result;
  }
  return result;
}

}  // namespace

extern const SpectrumKernels spectrumKernels;
const SpectrumKernels spectrumKernels = [] {
  SpectrumKernels kernels{};
  kernels.multiplyByConjugate = multiplyByConjugate;
  kernels.crossPower = crossPower;
  kernels.largest = largest;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
