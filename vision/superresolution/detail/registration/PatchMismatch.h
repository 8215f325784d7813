#pragma once

// The inner loop of the tracker, for kernel sources: sums of a patch's gradients times its differences to several images,
// for windows of the usual width and one channel. Each image has 128 bits of a vector and its sums in the order that
// PatchKernels.h tells, so that the bits do not depend on how many go side by side.

#include <cstddef>
#include <cstring>

#include "vision/superresolution/detail/base/Vectors.h"

#include <simde/x86/sse2.h>

#include "vision/superresolution/detail/registration/PatchKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

constexpr int weightBits = 14;
constexpr int greyBits = 5;  // fraction of the grey values of a patch
constexpr int usualWidth = 21;

inline int shortPair(const short* values) {
  int pair;
  std::memcpy(&pair, values, sizeof pair);
  return pair;
}

/// One image: 128 bits.
struct OneImage {
  static constexpr int count = 1;
  using Integers = simde__m128i;
  using Floats = simde__m128;

  static Integers zero() { return simde_mm_setzero_si128(); }
  static Floats zeros() { return simde_mm_setzero_ps(); }
  static Integers all(int value) { return simde_mm_set1_epi32(value); }
  static Integers load(const short* values) {
    return simde_mm_load_si128(reinterpret_cast<const simde__m128i*>(values));
  }
  static Integers pairs(const ImagePlace* const* places, int first) {
    return simde_mm_set1_epi32(shortPair(places[0]->weights + first));
  }
  static Integers multiply(Integers a, Integers b) { return simde_mm_madd_epi16(a, b); }
  static Integers add(Integers a, Integers b) { return simde_mm_add_epi32(a, b); }
  static Integers subtract(Integers a, Integers b) { return simde_mm_sub_epi16(a, b); }
  static Integers scaleDown(Integers a) { return simde_mm_srai_epi32(a, weightBits - greyBits); }
  static Integers pack(Integers low, Integers high) { return simde_mm_packs_epi32(low, high); }
  static Integers lowHalf(Integers a) { return simde_mm_unpacklo_epi16(a, zero()); }
  static Integers highHalf(Integers a) { return simde_mm_unpackhi_epi16(a, zero()); }
  static Integers firstTwice(Integers a) { return simde_mm_shuffle_epi32(a, 0x50); }
  static Integers secondTwice(Integers a) { return simde_mm_shuffle_epi32(a, 0xFA); }
  static Floats toFloats(Integers a) { return simde_mm_cvtepi32_ps(a); }
  static Floats add(Floats a, Floats b) { return simde_mm_add_ps(a, b); }
  static Floats upperHalf(Floats a) { return simde_mm_movehl_ps(a, a); }
  static void store(Floats a, float* to) { simde_mm_store_ps(to, a); }

  /// Pixels of a row beside their right neighbours: 0, 4, 1, 5 and 2, 6, 3, 7 of a whole block, 0 ... 3 and 4 of the rest.
  static void readRow(const unsigned char* const* rows, Integers (&read)[6]) {
    for (int block = 0; block < 2; ++block) {
      const Integers beside = simde_mm_unpacklo_epi8(bytes(rows[0] + 8 * block), bytes(rows[0] + 8 * block + 1));
      const Integers low = simde_mm_unpacklo_epi8(beside, zero());
      const Integers high = simde_mm_unpackhi_epi8(beside, zero());
      read[2 * block] = simde_mm_unpacklo_epi32(low, high);
      read[2 * block + 1] = simde_mm_unpackhi_epi32(low, high);
    }
    const Integers late = bytes(rows[0] + 14);
    const Integers beside = simde_mm_unpacklo_epi8(simde_mm_srli_epi64(late, 16), simde_mm_srli_epi64(late, 24));
    read[4] = simde_mm_unpacklo_epi8(beside, zero());
    read[5] = simde_mm_unpackhi_epi8(beside, zero());
  }

 private:
  static Integers bytes(const unsigned char* from) {
    return simde_mm_loadl_epi64(reinterpret_cast<const simde__m128i*>(from));
  }
};

#if defined(__AVX2__)

/// What readRow of several images shares: sixteen bytes of a row from its begin on, and up to its end.
struct RowBytes {
  static constexpr int late = 6;
  static __m128i at(const unsigned char* from) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)); }

  /// Puts four bytes beside the ones that follow them.
  static __m128i order(int a, int b, int c, int d) {
    const auto pair = [](int k) { return k < 0 ? static_cast<int>(0x80808080) : 0x80008000 | (k + 1) << 16 | k; };
    return _mm_setr_epi32(pair(a), pair(b), pair(c), pair(d));
  }
};

#endif

#if defined(__AVX512BW__)

/// Four images: 512 bits.
struct SeveralImages {
  static constexpr int count = 4;
  using Integers = __m512i;
  using Floats = __m512;

  static Integers zero() { return _mm512_setzero_si512(); }
  static Floats zeros() { return _mm512_setzero_ps(); }
  static Integers all(int value) { return _mm512_set1_epi32(value); }
  static Integers load(const short* values) {
    return _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i*>(values)));
  }
  static Integers pairs(const ImagePlace* const* places, int first) {
    const auto of = [=](int image) { return _mm_set1_epi32(shortPair(places[image]->weights + first)); };
    return joined(of(0), of(1), of(2), of(3));
  }
  static Integers multiply(Integers a, Integers b) { return _mm512_madd_epi16(a, b); }
  static Integers add(Integers a, Integers b) { return _mm512_add_epi32(a, b); }
  static Integers subtract(Integers a, Integers b) { return _mm512_sub_epi16(a, b); }
  static Integers scaleDown(Integers a) { return _mm512_srai_epi32(a, weightBits - greyBits); }
  static Integers pack(Integers low, Integers high) { return _mm512_packs_epi32(low, high); }
  static Integers lowHalf(Integers a) { return _mm512_unpacklo_epi16(a, zero()); }
  static Integers highHalf(Integers a) { return _mm512_unpackhi_epi16(a, zero()); }
  static Integers firstTwice(Integers a) { return _mm512_shuffle_epi32(a, _MM_PERM_BBAA); }
  static Integers secondTwice(Integers a) { return _mm512_shuffle_epi32(a, _MM_PERM_DDCC); }
  static Floats toFloats(Integers a) { return _mm512_cvtepi32_ps(a); }
  static Floats add(Floats a, Floats b) { return _mm512_add_ps(a, b); }
  static Floats upperHalf(Floats a) { return _mm512_shuffle_ps(a, a, 0xEE); }
  static void store(Floats a, float* to) { _mm512_store_ps(to, a); }

  static void readRow(const unsigned char* const* rows, Integers (&read)[6]) {
    const auto of = [=](int offset) {
      return joined(RowBytes::at(rows[0] + offset), RowBytes::at(rows[1] + offset), RowBytes::at(rows[2] + offset),
                    RowBytes::at(rows[3] + offset));
    };
    const auto ordered = [](Integers bytes, __m128i order) {
      return _mm512_shuffle_epi8(bytes, _mm512_broadcast_i32x4(order));
    };
    const Integers early = of(0);
    const Integers late = of(RowBytes::late);
    read[0] = ordered(early, RowBytes::order(0, 4, 1, 5));
    read[1] = ordered(early, RowBytes::order(2, 6, 3, 7));
    read[2] = ordered(late, RowBytes::order(2, 6, 3, 7));
    read[3] = ordered(late, RowBytes::order(4, 8, 5, 9));
    read[4] = ordered(late, RowBytes::order(10, 11, 12, 13));
    read[5] = ordered(late, RowBytes::order(14, -1, -1, -1));
  }

 private:
  static Integers joined(__m128i a, __m128i b, __m128i c, __m128i d) {
    const __m256i first = _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1);
    const __m256i second = _mm256_inserti128_si256(_mm256_castsi128_si256(c), d, 1);
    return _mm512_inserti64x4(_mm512_castsi256_si512(first), second, 1);
  }
};

#elif defined(__AVX2__)

/// Two images: 256 bits.
struct SeveralImages {
  static constexpr int count = 2;
  using Integers = __m256i;
  using Floats = __m256;

  static Integers zero() { return _mm256_setzero_si256(); }
  static Floats zeros() { return _mm256_setzero_ps(); }
  static Integers all(int value) { return _mm256_set1_epi32(value); }
  static Integers load(const short* values) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(values)));
  }
  static Integers pairs(const ImagePlace* const* places, int first) {
    const auto of = [=](int image) { return _mm_set1_epi32(shortPair(places[image]->weights + first)); };
    return joined(of(0), of(1));
  }
  static Integers multiply(Integers a, Integers b) { return _mm256_madd_epi16(a, b); }
  static Integers add(Integers a, Integers b) { return _mm256_add_epi32(a, b); }
  static Integers subtract(Integers a, Integers b) { return _mm256_sub_epi16(a, b); }
  static Integers scaleDown(Integers a) { return _mm256_srai_epi32(a, weightBits - greyBits); }
  static Integers pack(Integers low, Integers high) { return _mm256_packs_epi32(low, high); }
  static Integers lowHalf(Integers a) { return _mm256_unpacklo_epi16(a, zero()); }
  static Integers highHalf(Integers a) { return _mm256_unpackhi_epi16(a, zero()); }
  static Integers firstTwice(Integers a) { return _mm256_shuffle_epi32(a, 0x50); }
  static Integers secondTwice(Integers a) { return _mm256_shuffle_epi32(a, 0xFA); }
  static Floats toFloats(Integers a) { return _mm256_cvtepi32_ps(a); }
  static Floats add(Floats a, Floats b) { return _mm256_add_ps(a, b); }
  static Floats upperHalf(Floats a) { return _mm256_shuffle_ps(a, a, 0xEE); }
  static void store(Floats a, float* to) { _mm256_store_ps(to, a); }

  static void readRow(const unsigned char* const* rows, Integers (&read)[6]) {
    const auto of = [=](int offset) { return joined(RowBytes::at(rows[0] + offset), RowBytes::at(rows[1] + offset)); };
    const auto ordered = [](Integers bytes, __m128i order) {
      return _mm256_shuffle_epi8(bytes, _mm256_broadcastsi128_si256(order));
    };
    const Integers early = of(0);
    const Integers late = of(RowBytes::late);
    read[0] = ordered(early, RowBytes::order(0, 4, 1, 5));
    read[1] = ordered(early, RowBytes::order(2, 6, 3, 7));
    read[2] = ordered(late, RowBytes::order(2, 6, 3, 7));
    read[3] = ordered(late, RowBytes::order(4, 8, 5, 9));
    read[4] = ordered(late, RowBytes::order(10, 11, 12, 13));
    read[5] = ordered(late, RowBytes::order(14, -1, -1, -1));
  }

 private:
  static Integers joined(__m128i a, __m128i b) { return _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1); }
};

#else

using SeveralImages = OneImage;

#endif

/// The rest plus one partial sum after the other, in the order that PatchKernels.h tells.
inline float total(const float* lanes, float rest) {
  return rest + ((lanes[0] + lanes[2]) + (lanes[1] + lanes[3]));
}

/// Sums of gradX D and gradY D, two for each image, of Images::count images.
template <class Images>
void mismatchOfUsualWidth(const ImagePlace* const* places, int height, const PatchBlock* patch, float* const* sums) {
  using Integers = typename Images::Integers;
  using Floats = typename Images::Floats;
  const Integers weightsAbove = Images::pairs(places, 0);
  const Integers weightsBelow = Images::pairs(places, 2);
  const Integers half = Images::all(1 << (weightBits - greyBits - 1));
  const unsigned char* rows[Images::count];
  for (int i = 0; i < Images::count; ++i) {
    rows[i] = places[i]->grey;
  }
  Integers above[6];
  Images::readRow(rows, above);
  Floats x = Images::zeros();
  Floats y = Images::zeros();
  Floats rest = Images::zeros();  // x and y of the rests of rows
  for (int row = 0; row < height; ++row) {
    for (int i = 0; i < Images::count; ++i) {
      rows[i] += places[i]->stride;
    }
    Integers below[6];
    Images::readRow(rows, below);
    Integers values[6];
    for (int k = 0; k < 6; ++k) {
      const Integers sum =
          Images::add(Images::multiply(above[k], weightsAbove), Images::multiply(below[k], weightsBelow));
      values[k] = Images::scaleDown(Images::add(sum, half));
      above[k] = below[k];
    }
    for (int block = 0; block < 2; ++block, ++patch) {
      const Integers differences =
          Images::subtract(Images::pack(values[2 * block], values[2 * block + 1]), Images::load(patch->grey));
      x = Images::add(x, Images::toFloats(Images::multiply(differences, Images::load(patch->gradients[0]))));
      y = Images::add(y, Images::toFloats(Images::multiply(differences, Images::load(patch->gradients[1]))));
    }
    const Integers differences = Images::subtract(Images::pack(values[4], values[5]), Images::load(patch->grey));
    const Integers first = Images::lowHalf(differences);
    const Integers gradients = Images::load(patch->gradients[0]);
    const Integers products[] = {Images::multiply(Images::firstTwice(first), Images::lowHalf(gradients)),
                                 Images::multiply(Images::secondTwice(first), Images::highHalf(gradients)),
                                 Images::multiply(Images::firstTwice(Images::highHalf(differences)),
                                                  Images::lowHalf(Images::load(patch->gradients[1])))};
    for (int k = 0; k < 3; ++k) {
      const Floats two = Images::toFloats(products[k]);
      rest = Images::add(rest, two);
      if (k < 2) {
        rest = Images::add(rest, Images::upperHalf(two));
      }
    }
    ++patch;
  }
  alignas(64) float each[3][4 * Images::count];
  Images::store(x, each[0]);
  Images::store(y, each[1]);
  Images::store(rest, each[2]);
  for (int i = 0; i < Images::count; ++i) {
    sums[i][0] = total(each[0] + 4 * i, each[2][4 * i]);
    sums[i][1] = total(each[1] + 4 * i, each[2][4 * i + 1]);
  }
}

}  // namespace

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
