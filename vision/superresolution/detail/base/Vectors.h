#pragma once

// Vectors of the widest kind that the instruction set has, for kernel sources.

#include <utility>

#if defined(__AVX2__)
#pragma GCC diagnostic push
// A header of g++ 12 begins with vectors that nothing depends on.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop
#endif

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

#if defined(__AVX512F__)
constexpr int lanes = 16;
#elif defined(__AVX2__)
constexpr int lanes = 8;
#else
constexpr int lanes = 4;
#endif

/// Neighbouring elements.
using Vector = float __attribute__((vector_size(lanes * sizeof(float))));
using VectorBits = int __attribute__((vector_size(lanes * sizeof(float))));

/// Access to all elements of a vector in memory, at any address: one instruction each.
struct WholeVector {
  Vector load(const float* from) const {
    Vector value;
    __builtin_memcpy(&value, from, sizeof value);
    return value;
  }
  void store(Vector value, float* to) const { __builtin_memcpy(to, &value, sizeof value); }
  Vector keep(Vector value) const { return value; }
};

/// Access to the first `count` elements of a vector, 0 to all. The others are read as zeros, and nothing beyond is touched.
class PartOfVector {
 public:
#if defined(__AVX512F__)
  explicit PartOfVector(int count) : mask(static_cast<__mmask16>((1u << count) - 1)) {}

  Vector load(const float* from) const {
    return _mm512_maskz_loadu_ps(mask, from);
  }
  void store(Vector value, float* to) const {
    _mm512_mask_storeu_ps(to, mask, value);
  }
  Vector keep(Vector value) const {
    return _mm512_maskz_mov_ps(mask, value);
  }

 private:
  __mmask16 mask;
#else
  explicit PartOfVector(int number) : count(number) {}

  Vector load(const float* from) const {
    Vector value{};
    for (int i = 0; i < count; ++i) {
      value[i] = from[i];
    }
    return value;
  }
  void store(Vector value, float* to) const {
    for (int i = 0; i < count; ++i) {
      to[i] = value[i];
    }
  }
  Vector keep(Vector value) const {
    for (int i = count; i < lanes; ++i) {
      value[i] = 0;
    }
    return value;
  }

 private:
  int count;
#endif
};

#if defined(__AVX512F__)
/// Access to `count` elements of a vector from `first` on. The others are read as zeros.
class ElementsOfVector {
 public:
  ElementsOfVector(int first, int count) : mask(static_cast<__mmask16>(((1u << count) - 1) << first)) {}

  Vector load(const float* from) const { return _mm512_maskz_loadu_ps(mask, from); }
  void store(Vector value, float* to) const { _mm512_mask_storeu_ps(to, mask, value); }
  Vector add(Vector sum, Vector value) const { return _mm512_mask_add_ps(sum, mask, sum, value); }

 private:
  __mmask16 mask;
};
#endif

/// body(x, access) for the vectors from `begin` to `end`, of which the last may be a part.
template <class Body>
inline __attribute__((always_inline)) void forVectors(int begin, int end, Body body) {
  int x = begin;
  for (; x + lanes <= end; x += lanes) {
    body(x, WholeVector());
  }
  if (x < end) {
    body(x, PartOfVector(end - x));
  }
}

using Lanes = std::make_integer_sequence<int, lanes>;

template <int... i>
inline Vector evens(Vector a, Vector b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, (2 * i)...);
}

template <int... i>
inline Vector odds(Vector a, Vector b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, (2 * i + 1)...);
}

/// Elements of both in turn, `from` on.
template <int from, int... i>
inline Vector inTurn(Vector a, Vector b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, (from + i / 2 + i % 2 * lanes)...);
}

template <int count, int... i>
inline Vector following(Vector before, Vector after, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(before, after, (lanes - count + i)...);
}

/// The last `count` elements of one vector, 1 or 2, and the first ones of the next.
template <int count>
inline Vector following(Vector before, Vector after) {
  return following<count>(before, after, Lanes());
}

inline float absolute(float value) {
  return __builtin_fabsf(value);
}

inline Vector absolute(Vector value) {
  return reinterpret_cast<Vector>(reinterpret_cast<VectorBits>(value) & 0x7fffffff);
}

inline bool isZero(VectorBits value) {
#if defined(__AVX512F__)
  const auto bits = reinterpret_cast<__m512i>(value);
  return _mm512_test_epi32_mask(bits, bits) == 0;
#elif defined(__AVX2__)
  const auto bits = reinterpret_cast<__m256i>(value);
  return _mm256_testz_si256(bits, bits) != 0;
#else
  int any = 0;
  for (int i = 0; i < lanes; ++i) {
    any |= value[i];
  }
  return any == 0;
#endif
}

template <int... i>
inline VectorBits places(std::integer_sequence<int, i...>) {
  return VectorBits{i...};
}

/// 0, 1, 2 and so on.
inline VectorBits places() {
  return places(Lanes());
}

}  // namespace

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
