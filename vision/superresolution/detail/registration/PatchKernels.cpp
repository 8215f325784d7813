#include "vision/superresolution/detail/registration/PatchKernels.h"

#include <cstring>

#include <simde/x86/sse2.h>

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

constexpr int weightBits = 14;
constexpr int greyBits = 5;  // fraction of the grey values of a patch

// Eight pairs of numbers; what is computed of each pair is one 32-bit integer.
struct Pairs {
  simde__m128i low;
  simde__m128i high;
};

inline simde__m128i splatPair(short first, short second) {
  return simde_mm_set_epi16(second, first, second, first, second, first, second, first);
}

// Shape, with the width as a constant where it is the usual one.
template <int fixedWidth>
struct Rows {
  explicit Rows(const PatchShape& shape) : givenWidth(shape.width), height(shape.height), channels(shape.channels) {}

  int width() const { return fixedWidth > 0 ? fixedWidth : givenWidth; }
  int whole() const { return width() / 8; }
  int rest() const { return width() % 8; }

  int givenWidth;
  int height;
  int channels;
};

// The first `count` of eight elements, the others 0; nothing beyond them is read.
template <class Element>
inline simde__m128i load(const Element* elements, int count) {
  Element filled[16 / sizeof(Element)] = {};
  if (count == 8) {
    std::memcpy(filled, elements, 8 * sizeof(Element));
  } else {
    std::memcpy(filled, elements, static_cast<std::size_t>(count) * sizeof(Element));
  }
  simde__m128i result;
  std::memcpy(&result, filled, sizeof result);
  return result;
}

// Elements beside their neighbours to the right.
inline Pairs neighbours(const unsigned char* grey, int channels, int count) {
  const simde__m128i zero = simde_mm_setzero_si128();
  const simde__m128i bytes = simde_mm_unpacklo_epi8(load(grey, count), load(grey + channels, count));
  return {simde_mm_unpacklo_epi8(bytes, zero), simde_mm_unpackhi_epi8(bytes, zero)};
}

template <int shift>
inline simde__m128i weighted(simde__m128i above, simde__m128i below, simde__m128i weightsAbove,
                             simde__m128i weightsBelow) {
  const simde__m128i sum =
      simde_mm_add_epi32(simde_mm_madd_epi16(above, weightsAbove), simde_mm_madd_epi16(below, weightsBelow));
  return simde_mm_srai_epi32(simde_mm_add_epi32(sum, simde_mm_set1_epi32(1 << (shift - 1))), shift);
}

// Grey values between pixels.
class GreyBlock {
 public:
  GreyBlock(const BilinearWeights& weights)
      : above(splatPair(weights[0], weights[1])), below(splatPair(weights[2], weights[3])) {}

  simde__m128i at(const unsigned char* grey, std::ptrdiff_t stride, int channels, int count) const {
    const Pairs first = neighbours(grey, channels, count);
    const Pairs second = neighbours(grey + stride, channels, count);
    return simde_mm_packs_epi32(weighted<weightBits - greyBits>(first.low, second.low, above, below),
                                weighted<weightBits - greyBits>(first.high, second.high, above, below));
  }

 private:
  simde__m128i above;
  simde__m128i below;
};

// Derivatives between pixels of four elements: x and y side by side.
class DerivativeBlock {
 public:
  DerivativeBlock(const BilinearWeights& weights)
      : above(splatPair(weights[0], weights[1])), below(splatPair(weights[2], weights[3])) {}

  simde__m128i at(const short* derivatives, std::ptrdiff_t stride, int channels, int count) const {
    const Pairs first = pairs(derivatives, channels, count);
    const Pairs second = pairs(derivatives + stride, channels, count);
    return simde_mm_packs_epi32(weighted<weightBits>(first.low, second.low, above, below),
                                weighted<weightBits>(first.high, second.high, above, below));
  }

 private:
  static Pairs pairs(const short* derivatives, int channels, int count) {
    const simde__m128i here = load(derivatives, 2 * count);
    const simde__m128i right = load(derivatives + 2 * channels, 2 * count);
    return {simde_mm_unpacklo_epi16(here, right), simde_mm_unpackhi_epi16(here, right)};
  }

  simde__m128i above;
  simde__m128i below;
};

// Separates x and y of elements 0-3 and 4-7, and pairs 0 with 4 and so on.
inline void storeGradients(simde__m128i first, simde__m128i second, PatchBlock& block) {
  const simde__m128i low = simde_mm_unpacklo_epi16(first, second);
  const simde__m128i high = simde_mm_unpackhi_epi16(first, second);
  const simde__m128i evenLow = simde_mm_shuffle_epi32(low, 0xD8);
  const simde__m128i evenHigh = simde_mm_shuffle_epi32(high, 0xD8);
  const simde__m128i x = simde_mm_unpacklo_epi64(evenLow, evenHigh);
  const simde__m128i y = simde_mm_unpackhi_epi64(evenLow, evenHigh);
  std::memcpy(block.gradX, &x, sizeof x);
  std::memcpy(block.gradY, &y, sizeof y);
}

constexpr int place[8] = {0, 2, 4, 6, 1, 3, 5, 7};  // of element k among the pairs

inline float total(const float* lanes, float rest) {
  return rest + ((lanes[0] + lanes[2]) + (lanes[1] + lanes[3]));
}

struct GradientSums {
  void addWhole(const PatchBlock& block) {
    for (int half = 0; half < 2; ++half) {
      for (int k = 0; k < 4; ++k) {
        const auto x = static_cast<float>(block.gradX[2 * k + half]);
        const auto y = static_cast<float>(block.gradY[2 * k + half]);
        lanes[0][k] += x * x;
        lanes[1][k] += x * y;
        lanes[2][k] += y * y;
      }
    }
  }

  void addRest(const PatchBlock& block, int count) {
    for (int k = 0; k < count; ++k) {
      const auto x = static_cast<float>(block.gradX[place[k]]);
      const auto y = static_cast<float>(block.gradY[place[k]]);
      rest[0] += x * x;
      rest[1] += x * y;
      rest[2] += y * y;
    }
  }

  float lanes[3][4] = {};
  float rest[3] = {};
};

template <int fixedWidth>
void readRows(const unsigned char* grey, std::ptrdiff_t greyStride, const short* derivatives,
              std::ptrdiff_t derivativeStride, const Rows<fixedWidth> rows, const BilinearWeights& weights,
              PatchBlock* patch, float* sums) {
  const GreyBlock greyBlock(weights);
  const DerivativeBlock derivativeBlock(weights);
  GradientSums gradientSums;
  const auto read = [&](int x, int count) {
    const simde__m128i values = greyBlock.at(grey + x, greyStride, rows.channels, count);
    std::memcpy(patch->grey, &values, sizeof values);
    const short* first = derivatives + 2 * x;
    const int firstCount = count < 4 ? count : 4;
    storeGradients(derivativeBlock.at(first, derivativeStride, rows.channels, firstCount),
                   derivativeBlock.at(first + 2 * firstCount, derivativeStride, rows.channels, count - firstCount),
                   *patch);
  };
  for (int y = 0; y < rows.height; ++y) {
    for (int b = 0; b < rows.whole(); ++b) {
      read(8 * b, 8);
      gradientSums.addWhole(*patch++);
    }
    if (rows.rest() > 0) {
      read(8 * rows.whole(), rows.rest());
      gradientSums.addRest(*patch++, rows.rest());
    }
    grey += greyStride;
    derivatives += derivativeStride;
  }
  for (int s = 0; s < 3; ++s) {
    sums[s] = total(gradientSums.lanes[s], gradientSums.rest[s]);
  }
}

inline simde__m128i loadShorts(const short* values) {
  simde__m128i result;
  std::memcpy(&result, values, sizeof result);
  return result;
}

// Products with a gradient, elements k and k + 4 added.
inline simde__m128i productPairs(simde__m128i differences, const short* gradient) {
  const simde__m128i pairs = simde_mm_unpacklo_epi16(differences, simde_mm_unpackhi_epi64(differences, differences));
  return simde_mm_madd_epi16(pairs, loadShorts(gradient));
}

struct MismatchSum {
  void addWhole(simde__m128i differences, const short* gradient) {
    lanes = simde_mm_add_ps(lanes, simde_mm_cvtepi32_ps(productPairs(differences, gradient)));
  }

  void addRest(const short* differences, const short* gradient, int count) {
    for (int k = 0; k < count; ++k) {
      rest += static_cast<float>(differences[k] * gradient[place[k]]);
    }
  }

  float total() const {
    float each[4];
    std::memcpy(each, &lanes, sizeof each);
    return MOVRA_KERNEL_SET::total(each, rest);
  }

  simde__m128 lanes = simde_mm_setzero_ps();
  float rest = 0;
};

template <int fixedWidth>
void mismatchOfRows(const unsigned char* grey, std::ptrdiff_t stride, const Rows<fixedWidth> rows,
                    const BilinearWeights& weights, const PatchBlock* patch, float* sums) {
  const GreyBlock greyBlock(weights);
  MismatchSum x;
  MismatchSum y;
  for (int row = 0; row < rows.height; ++row) {
    for (int b = 0; b < rows.whole(); ++b) {
      const simde__m128i differences =
          simde_mm_sub_epi16(greyBlock.at(grey + 8 * b, stride, rows.channels, 8), loadShorts(patch->grey));
      x.addWhole(differences, patch->gradX);
      y.addWhole(differences, patch->gradY);
      ++patch;
    }
    if (rows.rest() > 0) {
      const simde__m128i differences = simde_mm_sub_epi16(
          greyBlock.at(grey + 8 * rows.whole(), stride, rows.channels, rows.rest()), loadShorts(patch->grey));
      short each[8];
      std::memcpy(each, &differences, sizeof each);
      x.addRest(each, patch->gradX, rows.rest());
      y.addRest(each, patch->gradY, rows.rest());
      ++patch;
    }
    grey += stride;
  }
  sums[0] = x.total();
  sums[1] = y.total();
}

constexpr int usualWidth = 21;

void readPatch(const unsigned char* grey, std::ptrdiff_t greyStride, const short* derivatives,
               std::ptrdiff_t derivativeStride, const PatchShape& shape, const BilinearWeights& weights,
               PatchBlock* patch, float* sums) {
  if (shape.width == usualWidth) {
    readRows(grey, greyStride, derivatives, derivativeStride, Rows<usualWidth>(shape), weights, patch, sums);
  } else {
    readRows(grey, greyStride, derivatives, derivativeStride, Rows<0>(shape), weights, patch, sums);
  }
}

void mismatch(const unsigned char* grey, std::ptrdiff_t stride, const PatchShape& shape, const BilinearWeights& weights,
              const PatchBlock* patch, float* sums) {
  if (shape.width == usualWidth) {
    mismatchOfRows(grey, stride, Rows<usualWidth>(shape), weights, patch, sums);
  } else {
    mismatchOfRows(grey, stride, Rows<0>(shape), weights, patch, sums);
  }
}

long distance(const unsigned char* grey, std::ptrdiff_t stride, const PatchShape& shape, const BilinearWeights& weights,
              const PatchBlock* patch) {
  const GreyBlock greyBlock(weights);
  long sum = 0;
  for (int y = 0; y < shape.height; ++y) {
    for (int x = 0; x < shape.width; x += 8) {
      const int count = shape.width - x < 8 ? shape.width - x : 8;
      const simde__m128i differences =
          simde_mm_sub_epi16(greyBlock.at(grey + x, stride, shape.channels, count), loadShorts(patch->grey));
      short each[8];
      std::memcpy(each, &differences, sizeof each);
      for (const short difference : each) {
        sum += difference < 0 ? -difference : difference;
      }
      ++patch;
    }
    grey += stride;
  }
  return sum;
}

void scharrRow(const unsigned char* __restrict row, std::ptrdiff_t stride, int channels, int count,
               short* __restrict derivatives) {
  const unsigned char* __restrict above = row - stride;
  const unsigned char* __restrict below = row + stride;
  for (int x = 0; x < count; ++x) {
    const auto across = [=](const unsigned char* p) { return p[x + channels] - p[x - channels]; };
    const auto down = [=](int i) { return below[i] - above[i]; };
    derivatives[2 * x] = static_cast<short>(3 * (across(above) + across(below)) + 10 * across(row));
    derivatives[2 * x + 1] = static_cast<short>(3 * (down(x - channels) + down(x + channels)) + 10 * down(x));
  }
}

}  // namespace

extern const PatchKernels patchKernels;
const PatchKernels patchKernels{readPatch, mismatch, distance, scharrRow};

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
