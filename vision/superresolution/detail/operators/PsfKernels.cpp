#include "vision/superresolution/detail/operators/PsfKernels.h"

#include "vision/superresolution/detail/base/Vectors.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

// Two neighbouring vectors, or the parts of them that belong to so many first elements of either kind.
WholeVector firstOfTwo(WholeVector whole, int /*count*/) {
  return whole;
}

WholeVector secondOfTwo(WholeVector whole, int /*count*/) {
  return whole;
}

PartOfVector firstOfTwo(PartOfVector /*part*/, int count) {
  return PartOfVector(2 * count < lanes ? 2 * count : lanes);
}

PartOfVector secondOfTwo(PartOfVector /*part*/, int count) {
  return PartOfVector(2 * count < lanes ? 0 : 2 * count - lanes);
}

void splitColumns(const float* row, int width, float* even, float* odd) {
  forVectors(0, width + 2, [=](int x, auto access) {
    const Vector a = firstOfTwo(access, width + 2 - x).load(row + 2 * x);
    const Vector b = secondOfTwo(access, width + 2 - x).load(row + 2 * x + lanes);
    access.store(evens(a, b, Lanes()), even + x);
    access.store(odds(a, b, Lanes()), odd + x);
  });
  even[width + 2] = row[2 * width + 4];
}

// The plain loops start each sum at +0, which shows only where all terms are zeros: the sum is then +0, never -0. Here
// that +0 is added once, at the end: in between, the sign of a zero changes nothing.

void mergeColumns(const float* even, const float* odd, int width, float* row) {
  forVectors(0, width + 2, [=](int x, auto access) {
    const Vector a = access.load(even + x) + 0.0f;
    const Vector b = access.load(odd + x) + 0.0f;
    firstOfTwo(access, width + 2 - x).store(inTurn<0>(a, b, Lanes()), row + 2 * x);
    secondOfTwo(access, width + 2 - x).store(inTurn<lanes / 2>(a, b, Lanes()), row + 2 * x + lanes);
  });
  row[2 * width + 4] = even[width + 2] + 0.0f;
}

// Six coefficients by value, which stay in registers where a pointer would be read again after each store.
struct Psf {
  explicit Psf(const float* taps) : t0(taps[0]), t1(taps[1]), t2(taps[2]), t3(taps[3]), t4(taps[4]), t5(taps[5]) {}
  float t0, t1, t2, t3, t4, t5;
};

enum class Taps { all, allButFirst, allButLast };

// Terms of a zero tap are zeros for finite data and are left out. A shifted PSF has one at one end or the other.
inline Taps tapsInUse(const float* psf) {
  return psf[5] == 0.0f ? Taps::allButLast : psf[0] == 0.0f ? Taps::allButFirst : Taps::all;
}

template <Taps taps, class Access>
inline Vector imagePixels(const float* even, const float* odd, const Psf& h, Access access) {
  Vector sum = access.load(odd) * h.t1;
  if constexpr (taps != Taps::allButFirst) {
    sum = access.load(even) * h.t0 + sum;
  }
  sum = sum + access.load(even + 1) * h.t2 + access.load(odd + 1) * h.t3 + access.load(even + 2) * h.t4;
  if constexpr (taps != Taps::allButLast) {
    sum = sum + access.load(odd + 2) * h.t5;
  }
  return sum;
}

template <Taps taps>
void imageRows(const float* const even[2], const float* const odd[2], int width, const float* psfX, const float* psfY,
               float* older, float* newer, float* complete) {
  const float* evenA = even[0];
  const float* oddA = odd[0];
  const float* evenB = even[1];
  const float* oddB = odd[1];
  const Psf h(psfX);
  const Psf v(psfY);
  forVectors(0, width, [=](int x, auto access) {
    const Vector a = imagePixels<taps>(evenA + x, oddA + x, h, access);
    const Vector b = imagePixels<taps>(evenB + x, oddB + x, h, access);
    access.store(access.load(older + x) + a * v.t4 + b * v.t5, complete + x);
    access.store(access.load(newer + x) + a * v.t2 + b * v.t3, older + x);
    access.store(a * v.t0 + b * v.t1, newer + x);
  });
}

void imageRowPair(const float* const even[2], const float* const odd[2], int width, const float* psfX,
                  const float* psfY, float* older, float* newer, float* complete) {
  switch (tapsInUse(psfX)) {
    case Taps::allButLast:
      return imageRows<Taps::allButLast>(even, odd, width, psfX, psfY, older, newer, complete);
    case Taps::allButFirst:
      return imageRows<Taps::allButFirst>(even, odd, width, psfX, psfY, older, newer, complete);
    case Taps::all:
      return imageRows<Taps::all>(even, odd, width, psfX, psfY, older, newer, complete);
  }
}

void weightRow(const char* __restrict mask, const float* row, int width, float* weighted) {
#pragma GCC ivdep
  for (int x = 0; x < width; ++x) {
    weighted[x] = static_cast<float>(static_cast<signed char>(mask[x])) * row[x];
  }
}

bool isAllOnes(const char* mask, int width) {
  unsigned char differences = 0;
  for (int x = 0; x < width; ++x) {
    differences |= static_cast<unsigned char>(mask[x] ^ 1);
  }
  return differences == 0;
}

#if defined(__AVX512F__)

// A row between the two halves goes by and is added to the split row that it is spread over.
template <Taps taps>
class SpreadRow {
 public:
  template <class Access>
  void add(Vector row, const Psf& h, float* even, float* odd, Access access) {
    const Vector left = following<1>(before, row);
    const Vector leftOfThat = following<2>(before, row);
    const Vector ofEvenTaps =
        taps == Taps::allButFirst ? left * h.t2 + leftOfThat * h.t4 : row * h.t0 + left * h.t2 + leftOfThat * h.t4;
    const Vector ofOddTaps =
        taps == Taps::allButLast ? row * h.t1 + left * h.t3 : row * h.t1 + left * h.t3 + leftOfThat * h.t5;
    access.store(access.load(even) + ofEvenTaps, even);
    access.store(access.load(odd) + ofOddTaps, odd);
    before = row;
  }

 private:
  Vector before{};
};

template <Taps taps>
void addSpreadRows(const float* row, const float* rowBefore, const float* rowBeforeThat, int width, const float* psfX,
                   const float* psfY, float* const even[2], float* const odd[2]) {
  float* const evenA = even[0];
  float* const oddA = odd[0];
  float* const evenB = even[1];
  float* const oddB = odd[1];
  const Psf h(psfX);
  const Psf v(psfY);
  SpreadRow<taps> upper;
  SpreadRow<taps> lower;
  const auto add = [&](int x, auto given, auto taken) {
    const Vector first = given.load(row + x);
    const Vector second = given.load(rowBefore + x);
    const Vector third = given.load(rowBeforeThat + x);
    upper.add(given.keep(first * v.t0 + second * v.t2 + third * v.t4), h, evenA + x, oddA + x, taken);
    lower.add(given.keep(first * v.t1 + second * v.t3 + third * v.t5), h, evenB + x, oddB + x, taken);
  };
  int x = 0;
  for (; x + lanes <= width; x += lanes) {
    add(x, WholeVector(), WholeVector());
  }
  for (; x < width + 3; x += lanes) {  // zeros follow the row
    const auto part = [=](int end) { return PartOfVector(end <= x ? 0 : end - x < lanes ? end - x : lanes); };
    add(x, part(width), part(width + 3));
  }
}

#else

// With half the registers the halves go one after the other, through a part of a row that stays in the first-level cache.
constexpr int partLength = 256;

template <Taps taps>
inline void addSpreadPart(const float* __restrict row, int count, const Psf& h, float* __restrict even,
                          float* __restrict odd) {
  for (int x = 0; x < count; ++x) {
    const float ofEvenTaps = taps == Taps::allButFirst ? row[x - 1] * h.t2 + row[x - 2] * h.t4
                                                       : row[x] * h.t0 + row[x - 1] * h.t2 + row[x - 2] * h.t4;
    const float ofOddTaps = taps == Taps::allButLast ? row[x] * h.t1 + row[x - 1] * h.t3
                                                     : row[x] * h.t1 + row[x - 1] * h.t3 + row[x - 2] * h.t5;
    even[x] += ofEvenTaps;
    odd[x] += ofOddTaps;
  }
}

template <Taps taps>
void addSpreadRows(const float* row, const float* rowBefore, const float* rowBeforeThat, int width, const float* psfX,
                   const float* psfY, float* const even[2], float* const odd[2]) {
  const Psf h(psfX);
  const Psf v(psfY);
  float rows[2][2 + partLength];  // two pixels before the part
  float* const upper = rows[0] + 2;
  float* const lower = rows[1] + 2;
  upper[-2] = upper[-1] = lower[-2] = lower[-1] = 0;
  for (int begin = 0; begin < width + 3; begin += partLength) {
    const int count = width + 3 - begin < partLength ? width + 3 - begin : partLength;
    const int given = width - begin < count ? width - begin : count;
    const float* __restrict first = row + begin;
    const float* __restrict second = rowBefore + begin;
    const float* __restrict third = rowBeforeThat + begin;
    for (int x = 0; x < given; ++x) {
      upper[x] = first[x] * v.t0 + second[x] * v.t2 + third[x] * v.t4;
      lower[x] = first[x] * v.t1 + second[x] * v.t3 + third[x] * v.t5;
    }
    for (int x = given < 0 ? 0 : given; x < count; ++x) {  // zeros follow the row
      upper[x] = lower[x] = 0;
    }
    addSpreadPart<taps>(upper, count, h, even[0] + begin, odd[0] + begin);
    addSpreadPart<taps>(lower, count, h, even[1] + begin, odd[1] + begin);
    for (int i = -2; i < 0; ++i) {
      upper[i] = upper[count + i];
      lower[i] = lower[count + i];
    }
  }
}

#endif

void addSpread(const float* row, const float* rowBefore, const float* rowBeforeThat, int width, const float* psfX,
               const float* psfY, float* const even[2], float* const odd[2]) {
  switch (tapsInUse(psfX)) {
    case Taps::allButLast:
      return addSpreadRows<Taps::allButLast>(row, rowBefore, rowBeforeThat, width, psfX, psfY, even, odd);
    case Taps::allButFirst:
      return addSpreadRows<Taps::allButFirst>(row, rowBefore, rowBeforeThat, width, psfX, psfY, even, odd);
    case Taps::all:
      return addSpreadRows<Taps::all>(row, rowBefore, rowBeforeThat, width, psfX, psfY, even, odd);
  }
}

}  // namespace

extern const PsfKernels psfKernels;
const PsfKernels psfKernels = [] {
  PsfKernels kernels{};
  kernels.splitColumns = splitColumns;
  kernels.mergeColumns = mergeColumns;
  kernels.imageRowPair = imageRowPair;
  kernels.weightRow = weightRow;
  kernels.isAllOnes = isAllOnes;
  kernels.addSpread = addSpread;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
