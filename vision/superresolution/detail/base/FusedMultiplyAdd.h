#pragma once

// For kernel sources whose results are defined by fused operations. With AVX2 the including source must select them
// itself, before it includes this file:
//
//   #if defined(__AVX2__)
//   #pragma GCC target("fma")
//   #endif

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

/// a * b + c, rounded once. Where the processor has no such operation it is computed in double: the product is exact,
/// and a sum that is rounded to an odd last bit unless it is exact can be rounded again (S. Boldo and G. Melquiond).
inline float fusedMultiplyAdd(float a, float b, float c) {
#if defined(__AVX2__) || defined(__ARM_FEATURE_FMA)
  return __builtin_fmaf(a, b, c);
#else
  const double product = static_cast<double>(a) * static_cast<double>(b);
  const double addend = static_cast<double>(c);
  const double sum = product + addend;
  const double back = sum - product;
  const double error = (product - (sum - back)) + (addend - back);
  long long bits;
  __builtin_memcpy(&bits, &sum, sizeof bits);
  const bool isInexact = error < 0 || error > 0;
  if (isInexact && bits % 2 == 0) {
    bits += (error > 0) == (sum > 0) ? 1 : -1;
  }
  double odd;
  __builtin_memcpy(&odd, &bits, sizeof odd);
  return static_cast<float>(odd);
#endif
}

}  // namespace

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
