#pragma once

#include <cstddef>

#include "vision/superresolution/detail/fft/FftKernels.h"

// The values that the passes of a Fourier transform work on: floats for one sequence, vectors of floats for a
// batch. Only for FftKernels.cpp, which is compiled once per instruction set.

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

using std::ptrdiff_t;

/// A value is a float or a vector of floats; operations on a vector work on each of its elements alone.
template <typename Value>
struct Complex {
  Value re;
  Value im;
};

template <typename Value>
inline Complex<Value> operator+(Complex<Value> a, Complex<Value> b) {
  return {a.re + b.re, a.im + b.im};
}

template <typename Value>
inline Complex<Value> operator-(Complex<Value> a, Complex<Value> b) {
  return {a.re - b.re, a.im - b.im};
}

template <typename Value>
inline Complex<Value> operator*(float a, Complex<Value> b) {
  return {a * b.re, a * b.im};
}

template <typename Value>
inline Complex<Value> conjugate(Complex<Value> a) {
  return {a.re, -a.im};
}

enum class Direction { forward, backward };

/// The direction's quarter turn: -i * a forward, i * a backward.
template <Direction D, typename Value>
inline Complex<Value> quarterTurn(Complex<Value> a) {
  if constexpr (D == Direction::forward) {
    return {a.im, -a.re};
  } else {
    return {-a.im, a.re};
  }
}

/// conj(root) * a forward, root * a backward.
template <Direction D, typename Value>
inline Complex<Value> turn(Complex<float> root, Complex<Value> a) {
  if constexpr (D == Direction::forward) {
    return {root.re * a.re + root.im * a.im, root.re * a.im - root.im * a.re};
  } else {
    return {root.re * a.re - root.im * a.im, root.re * a.im + root.im * a.re};
  }
}

#if defined(__AVX512F__)
constexpr int vectorBytes = 64;
#elif defined(__AVX__)
constexpr int vectorBytes = 32;
#else
constexpr int vectorBytes = 16;
#endif

/// The widest vector of the instruction set. A batch is one or more of them.
using Vector = float __attribute__((vector_size(vectorBytes)));

/// Floats in a value.
template <typename V>
constexpr int width = static_cast<int>(sizeof(V) / sizeof(float));

/// Sequences side by side: one, or a batch.
template <typename V>
constexpr int lanes = width<V> == 1 ? 1 : fftBatchWidth;

template <typename V>
inline V get(const float* p) {
  V value;
  __builtin_memcpy(&value, p, sizeof value);
  return value;
}

template <typename V>
inline void put(float* p, V value) {
  __builtin_memcpy(p, &value, sizeof value);
}

/// Element of a complex sequence, or the lanes of it that a vector holds.
template <typename V>
inline Complex<V> load(const float* element) {
  return {get<V>(element), get<V>(element + lanes<V>)};
}

template <typename V>
inline void store(float* element, Complex<V> value) {
  put(element, value.re);
  put(element + lanes<V>, value.im);
}

/// exp(2 pi i t / n), t > 0.
inline Complex<float> rootAt(const float* roots, ptrdiff_t t) {
  return {roots[2 * t - 2], roots[2 * t - 1]};
}

}  // namespace

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
