#include "vision/superresolution/detail/registration/PatchKernels.h"

#include <cstring>

#include "vision/superresolution/detail/registration/PatchMismatch.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

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

// Elements of a whole block, which are 16 bits each, in the order of PatchBlock.
inline simde__m128i paired(simde__m128i elements) {
  return simde_mm_unpacklo_epi16(elements, simde_mm_unpackhi_epi64(elements, elements));
}

inline simde__m128i loadShorts(const short* values) {
  return simde_mm_load_si128(reinterpret_cast<const simde__m128i*>(values));
}

inline void storeShorts(simde__m128i values, short* to) {
  simde_mm_store_si128(reinterpret_cast<simde__m128i*>(to), values);
}

// Separates x and y of elements 0-3 and 4-7.
inline void storeGradients(simde__m128i first, simde__m128i second, PatchBlock& block) {
  const simde__m128i low = simde_mm_unpacklo_epi16(first, second);
  const simde__m128i high = simde_mm_unpackhi_epi16(first, second);
  const simde__m128i evenLow = simde_mm_shuffle_epi32(low, 0xD8);
  const simde__m128i evenHigh = simde_mm_shuffle_epi32(high, 0xD8);
  storeShorts(simde_mm_unpacklo_epi64(evenLow, evenHigh), block.gradients[0]);
  storeShorts(simde_mm_unpackhi_epi64(evenLow, evenHigh), block.gradients[1]);
}

inline simde__m128 lowFloats(simde__m128i shorts) {
  return simde_mm_cvtepi32_ps(simde_mm_srai_epi32(simde_mm_unpacklo_epi16(shorts, shorts), 16));
}

inline simde__m128 highFloats(simde__m128i shorts) {
  return simde_mm_cvtepi32_ps(simde_mm_srai_epi32(simde_mm_unpackhi_epi16(shorts, shorts), 16));
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
    const Halves x(block.gradients[0]);
    const Halves y(block.gradients[1]);
    add(0, x, x);
    add(1, x, y);
    add(2, y, y);
  }

  void addRest(const PatchBlock& block, int count) {
    for (int half = 0; half < 2; ++half) {
      const simde__m128i gradients = loadShorts(block.gradients[half]);
      addTwo(lowFloats(gradients), count - 4 * half);
      addTwo(highFloats(gradients), count - 4 * half - 2);
    }
  }

  // x and y of two elements.
  void addTwo(simde__m128 gradients, int count) {
    if (count > 0) {
      rest = simde_mm_add_ps(rest, simde_mm_mul_ps(simde_mm_shuffle_ps(gradients, gradients, 0x50),
                                                   simde_mm_shuffle_ps(gradients, gradients, 0x54)));
    }
    if (count > 1) {
      rest = simde_mm_add_ps(rest, simde_mm_mul_ps(simde_mm_shuffle_ps(gradients, gradients, 0xFA),
                                                   simde_mm_shuffle_ps(gradients, gradients, 0xFE)));
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
  const auto readGrey = [&](int x, int count) {
    return greyBlock.at<fixedWidth>(grey + x, greyStride, rows.channels, count);
  };
  const auto readDerivatives = [&](int x, int count) {
    return derivativeBlock.at(derivatives + 2 * x, derivativeStride, rows.channels, count);
  };
  for (int y = 0; y < rows.height; ++y) {
    for (int b = 0; b < rows.whole(); ++b) {
      storeShorts(paired(readGrey(8 * b, 8)), patch->grey);
      storeGradients(readDerivatives(8 * b, 4), readDerivatives(8 * b + 4, 4), *patch);
      gradientSums.addWhole(*patch++);
    }
    if (rows.rest() > 0) {
      const int x = 8 * rows.whole();
      const int first = rows.rest() < 4 ? rows.rest() : 4;
      storeShorts(readGrey(x, rows.rest()), patch->grey);
      storeShorts(readDerivatives(x, first), patch->gradients[0]);
      storeShorts(readDerivatives(x + first, rows.rest() - first), patch->gradients[1]);
      gradientSums.addRest(*patch++, rows.rest());
    }
    grey += greyStride;
    derivatives += derivativeStride;
  }
  float rest[4];
  simde_mm_storeu_ps(rest, gradientSums.rest);
  for (int s = 0; s < 3; ++s) {
    float each[4];
    simde_mm_storeu_ps(each, gradientSums.lanes[s]);
    sums[s] = total(each, rest[s]);
  }
}

// The same sums as mismatchOfUsualWidth, for any shape.
void mismatchOfAnyShape(const ImagePlace& place, const PatchShape& shape, const PatchBlock* patch, float* sums) {
  const Rows<0> rows(shape);
  const GreyBlock greyBlock(place.weights);
  const simde__m128i zero = simde_mm_setzero_si128();
  const unsigned char* grey = place.grey;
  simde__m128 gradientSums[2] = {simde_mm_setzero_ps(), simde_mm_setzero_ps()};
  simde__m128 restSums = simde_mm_setzero_ps();  // x and y of the rests of rows
  for (int row = 0; row < rows.height; ++row) {
    for (int b = 0; b < rows.whole(); ++b, ++patch) {
      const simde__m128i differences = simde_mm_sub_epi16(
          paired(greyBlock.at<0>(grey + 8 * b, place.stride, rows.channels, 8)), loadShorts(patch->grey));
      for (int i = 0; i < 2; ++i) {
        const simde__m128i products = simde_mm_madd_epi16(differences, loadShorts(patch->gradients[i]));
        gradientSums[i] = simde_mm_add_ps(gradientSums[i], simde_mm_cvtepi32_ps(products));
      }
    }
    if (rows.rest() > 0) {
      const simde__m128i differences = simde_mm_sub_epi16(
          greyBlock.at<0>(grey + 8 * rows.whole(), place.stride, rows.channels, rows.rest()), loadShorts(patch->grey));
      alignas(16) short each[8];
      storeShorts(differences, each);
      for (int k = 0; k < rows.rest(); ++k) {
        const short* gradient = patch->gradients[k / 4] + 2 * (k % 4);
        const simde__m128i products =
            simde_mm_madd_epi16(simde_mm_set1_epi32(static_cast<unsigned short>(each[k])),
                                simde_mm_unpacklo_epi16(simde_mm_set1_epi32(shortPair(gradient)), zero));
        restSums = simde_mm_add_ps(restSums, simde_mm_cvtepi32_ps(products));
      }
      ++patch;
    }
    grey += place.stride;
  }
  float rest[4];
  simde_mm_storeu_ps(rest, restSums);
  for (int i = 0; i < 2; ++i) {
    float each[4];
    simde_mm_storeu_ps(each, gradientSums[i]);
    sums[i] = total(each, rest[i]);
  }
}

void readPatch(const unsigned char* grey, std::ptrdiff_t greyStride, const short* derivatives,
               std::ptrdiff_t derivativeStride, const PatchShape& shape, const BilinearWeights& weights,
               PatchBlock* patch, float* sums) {
  if (shape.width == usualWidth) {
    readRows(grey, greyStride, derivatives, derivativeStride, Rows<usualWidth>(shape), weights, patch, sums);
  } else {
    readRows(grey, greyStride, derivatives, derivativeStride, Rows<0>(shape), weights, patch, sums);
  }
}

void mismatch(const ImagePlace* const* places, int count, const PatchShape& shape, const PatchBlock* patch,
              float* const* sums) {
  if (shape.width != usualWidth || shape.channels != 1) {
    for (int i = 0; i < count; ++i) {
      mismatchOfAnyShape(*places[i], shape, patch, sums[i]);
    }
    return;
  }
  constexpr int together = SeveralImages::count;
  while (count > 1 && together > 1) {
    const ImagePlace* several[together];
    float* severalSums[together];
    for (int i = 0; i < together; ++i) {  // the last one again where there are fewer
      several[i] = places[i < count ? i : count - 1];
      severalSums[i] = sums[i < count ? i : count - 1];
    }
    mismatchOfUsualWidth<SeveralImages>(several, shape.height, patch, severalSums);
    places += together;
    sums += together;
    count -= together;
  }
  for (int i = 0; i < count; ++i) {
    mismatchOfUsualWidth<OneImage>(places + i, shape.height, patch, sums + i);
  }
}

long distance(const ImagePlace& place, const PatchShape& shape, const PatchBlock* patch) {
  const GreyBlock greyBlock(place.weights);
  const unsigned char* grey = place.grey;
  long sum = 0;
  for (int y = 0; y < shape.height; ++y) {
    for (int x = 0; x < shape.width; x += 8) {
      const int count = shape.width - x < 8 ? shape.width - x : 8;
      const simde__m128i values = greyBlock.at<0>(grey + x, place.stride, shape.channels, count);
      alignas(16) short each[8];
      storeShorts(simde_mm_sub_epi16(count < 8 ? values : paired(values), loadShorts(patch->grey)), each);
      for (const short difference : each) {
        sum += difference < 0 ? -difference : difference;
      }
      ++patch;
    }
    grey += place.stride;
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
