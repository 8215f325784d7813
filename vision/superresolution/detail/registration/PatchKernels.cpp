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

// The first `count` of eight bytes, the others 0; nothing beyond them is read. Where there are eight bytes before the end,
// these are loaded at once.
template <int fixedWidth>
inline simde__m128i loadBytes(const unsigned char* bytes, int count) {
  long long value = 0;
  if (count == 8) {
    std::memcpy(&value, bytes, 8);
  } else if (fixedWidth >= 8) {
    unsigned long long late;
    std::memcpy(&late, bytes + count - 8, 8);
    value = static_cast<long long>(late >> (8 * (8 - count)));
  } else {
    std::memcpy(&value, bytes, static_cast<std::size_t>(count));
  }
  return simde_mm_set_epi64x(0, value);
}

// The first `count` of four pairs, the others 0.
inline simde__m128i loadPairs(const short* pairs, int count) {
  if (count == 4) {
    return simde_mm_loadu_si128(reinterpret_cast<const simde__m128i*>(pairs));
  }
  int each[4] = {};
  for (int k = 0; k < count && k < 4; ++k) {
    std::memcpy(each + k, pairs + 2 * k, sizeof *each);
  }
  return simde_mm_set_epi32(0, each[2], each[1], each[0]);
}

// Elements beside their neighbours to the right.
template <int fixedWidth>
inline Pairs neighbours(const unsigned char* grey, int channels, int count) {
  const simde__m128i zero = simde_mm_setzero_si128();
  const simde__m128i bytes =
      simde_mm_unpacklo_epi8(loadBytes<fixedWidth>(grey, count), loadBytes<fixedWidth>(grey + channels, count));
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

  template <int fixedWidth>
  simde__m128i at(const unsigned char* grey, std::ptrdiff_t stride, int channels, int count) const {
    const Pairs first = neighbours<fixedWidth>(grey, channels, count);
    const Pairs second = neighbours<fixedWidth>(grey + stride, channels, count);
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
    const simde__m128i here = loadPairs(derivatives, count);
    const simde__m128i right = loadPairs(derivatives + 2 * channels, count);
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

inline simde__m128i loadShorts(const short* values) {
  return simde_mm_load_si128(reinterpret_cast<const simde__m128i*>(values));
}

// One partial sum after the other; how they are combined at the end.
inline float total(simde__m128 lanes, float rest) {
  float each[4];
  simde_mm_storeu_ps(each, lanes);
  return rest + ((each[0] + each[2]) + (each[1] + each[3]));
}

// Elements 0-3 and 4-7 of a gradient.
struct Halves {
  explicit Halves(const short* gradient) {
    const simde__m128i pairs = loadShorts(gradient);
    low = simde_mm_cvtepi32_ps(simde_mm_srai_epi32(simde_mm_slli_epi32(pairs, 16), 16));
    high = simde_mm_cvtepi32_ps(simde_mm_srai_epi32(pairs, 16));
  }

  simde__m128 low;
  simde__m128 high;
};

struct GradientSums {
  void addWhole(const PatchBlock& block) {
    const Halves x(block.gradX);
    const Halves y(block.gradY);
    add(0, x, x);
    add(1, x, y);
    add(2, y, y);
  }

  void addRest(const PatchBlock& block, int count) {
    const Halves x(block.gradX);
    const Halves y(block.gradY);
    addElements(x.low, y.low, count < 4 ? count : 4);
    addElements(x.high, y.high, count - 4);
  }

  void addElements(simde__m128 x, simde__m128 y, int count) {
    const simde__m128 xx = simde_mm_mul_ps(x, x);
    const simde__m128 xy = simde_mm_mul_ps(x, y);
    const simde__m128 yy = simde_mm_mul_ps(y, y);
    const simde__m128 squaresLow = simde_mm_unpacklo_ps(xx, yy);
    const simde__m128 squaresHigh = simde_mm_unpackhi_ps(xx, yy);
    const simde__m128 mixedLow = simde_mm_unpacklo_ps(xy, xy);
    const simde__m128 mixedHigh = simde_mm_unpackhi_ps(xy, xy);
    const simde__m128 elements[] = {
        simde_mm_unpacklo_ps(squaresLow, mixedLow), simde_mm_unpackhi_ps(squaresLow, mixedLow),
        simde_mm_unpacklo_ps(squaresHigh, mixedHigh), simde_mm_unpackhi_ps(squaresHigh, mixedHigh)};
    for (int k = 0; k < count; ++k) {
      rest = simde_mm_add_ps(rest, elements[k]);
    }
  }

  void add(int sum, const Halves& a, const Halves& b) {
    lanes[sum] = simde_mm_add_ps(lanes[sum], simde_mm_mul_ps(a.low, b.low));
    lanes[sum] = simde_mm_add_ps(lanes[sum], simde_mm_mul_ps(a.high, b.high));
  }

  simde__m128 lanes[3] = {simde_mm_setzero_ps(), simde_mm_setzero_ps(), simde_mm_setzero_ps()};
  simde__m128 rest = simde_mm_setzero_ps();  // x^2, x y, y^2 of the rests of rows
};

template <int fixedWidth>
void readRows(const unsigned char* grey, std::ptrdiff_t greyStride, const short* derivatives,
              std::ptrdiff_t derivativeStride, const Rows<fixedWidth> rows, const BilinearWeights& weights,
              PatchBlock* patch, float* sums) {
  const GreyBlock greyBlock(weights);
  const DerivativeBlock derivativeBlock(weights);
  GradientSums gradientSums;
  const auto read = [&](int x, int count) {
    const simde__m128i values = greyBlock.at<fixedWidth>(grey + x, greyStride, rows.channels, count);
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
  float rest[4];
  simde_mm_storeu_ps(rest, gradientSums.rest);
  for (int s = 0; s < 3; ++s) {
    sums[s] = total(gradientSums.lanes[s], rest[s]);
  }
}

// Differences in the order of the gradients.
inline simde__m128i paired(simde__m128i differences) {
  return simde_mm_unpacklo_epi16(differences, simde_mm_unpackhi_epi64(differences, differences));
}

// Products of pairs with a gradient, each rounded to float: elements 0, 4, 1, 5 and 2, 6, 3, 7.
struct Products {
  Products(simde__m128i pairs, simde__m128i gradient) {
    const simde__m128i low = simde_mm_mullo_epi16(pairs, gradient);
    const simde__m128i high = simde_mm_mulhi_epi16(pairs, gradient);
    first = simde_mm_cvtepi32_ps(simde_mm_unpacklo_epi16(low, high));
    second = simde_mm_cvtepi32_ps(simde_mm_unpackhi_epi16(low, high));
  }

  simde__m128 first;
  simde__m128 second;
};

// Sums with both gradients.
struct MismatchSums {
  void addWhole(simde__m128i differences, const PatchBlock& block) {
    const simde__m128i pairs = paired(differences);
    x = simde_mm_add_ps(x, simde_mm_cvtepi32_ps(simde_mm_madd_epi16(pairs, loadShorts(block.gradX))));
    y = simde_mm_add_ps(y, simde_mm_cvtepi32_ps(simde_mm_madd_epi16(pairs, loadShorts(block.gradY))));
  }

  void addRest(simde__m128i differences, const PatchBlock& block, int count) {
    const simde__m128i pairs = paired(differences);
    const Products px(pairs, loadShorts(block.gradX));
    const Products py(pairs, loadShorts(block.gradY));
    const simde__m128 elements[] = {simde_mm_unpacklo_ps(px.first, py.first), simde_mm_unpackhi_ps(px.first, py.first),
                                    simde_mm_unpacklo_ps(px.second, py.second),
                                    simde_mm_unpackhi_ps(px.second, py.second)};  // k beside k + 4
    for (int k = 0; k < count; ++k) {
      const simde__m128 element = elements[k % 4];
      rest = simde_mm_add_ps(rest, k < 4 ? element : simde_mm_movehl_ps(element, element));
    }
  }

  void total(float* sums) const {
    float each[4];
    simde_mm_storeu_ps(each, rest);
    sums[0] = MOVRA_KERNEL_SET::total(x, each[0]);
    sums[1] = MOVRA_KERNEL_SET::total(y, each[1]);
  }

  simde__m128 x = simde_mm_setzero_ps();
  simde__m128 y = simde_mm_setzero_ps();
  simde__m128 rest = simde_mm_setzero_ps();  // x and y of the rests of rows
};

template <int fixedWidth>
void mismatchOfRows(const unsigned char* grey, std::ptrdiff_t stride, const Rows<fixedWidth> rows,
                    const BilinearWeights& weights, const PatchBlock* patch, float* sums) {
  const GreyBlock greyBlock(weights);
  MismatchSums mismatch;
  const auto differences = [&](int x, int count) {
    return simde_mm_sub_epi16(greyBlock.at<fixedWidth>(grey + x, stride, rows.channels, count),
                              loadShorts(patch->grey));
  };
  for (int row = 0; row < rows.height; ++row) {
    for (int b = 0; b < rows.whole(); ++b) {
      mismatch.addWhole(differences(8 * b, 8), *patch);
      ++patch;
    }
    if (rows.rest() > 0) {
      mismatch.addRest(differences(8 * rows.whole(), rows.rest()), *patch, rows.rest());
      ++patch;
    }
    grey += stride;
  }
  mismatch.total(sums);
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
          simde_mm_sub_epi16(greyBlock.at<0>(grey + x, stride, shape.channels, count), loadShorts(patch->grey));
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

struct ThreeRows {
  const unsigned char* above;
  const unsigned char* row;
  const unsigned char* below;

  // At element x, with its neighbours.
  void derive(int left, int x, int right, short* derivatives) const {
    const int across = 3 * (above[right] - above[left] + below[right] - below[left]) + 10 * (row[right] - row[left]);
    const int down = 3 * (below[left] - above[left] + below[right] - above[right]) + 10 * (below[x] - above[x]);
    derivatives[2 * x] = static_cast<short>(across);
    derivatives[2 * x + 1] = static_cast<short>(down);
  }
};

void scharrRow(const unsigned char* above, const unsigned char* row, const unsigned char* below, int width,
               int channels, short* derivatives) {
  const ThreeRows rows{above, row, below};
  const int last = (width - 1) * channels;
  const int inward = width > 1 ? channels : 0;
#pragma GCC ivdep
  for (int x = channels; x < last; ++x) {
    rows.derive(x - channels, x, x + channels, derivatives);
  }
  for (int c = 0; c < channels; ++c) {
    rows.derive(c + inward, c, c + inward, derivatives);
    rows.derive(last + c - inward, last + c, last + c - inward, derivatives);
  }
}

}  // namespace

extern const PatchKernels patchKernels;
const PatchKernels patchKernels = [] {
  PatchKernels kernels{};
  kernels.readPatch = readPatch;
  kernels.mismatch = mismatch;
  kernels.distance = distance;
  kernels.scharrRow = scharrRow;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
