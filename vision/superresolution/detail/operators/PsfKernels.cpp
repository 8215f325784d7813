#include "vision/superresolution/detail/operators/PsfKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

void splitColumns(const float* __restrict row, int width, float* __restrict even, float* __restrict odd) {
  for (int x = 0; x < width + 2; ++x) {
    even[x] = row[2 * x];
    odd[x] = row[2 * x + 1];
  }
  even[width + 2] = row[2 * width + 4];
}

// The plain loops start each sum at +0, which shows only where all terms are zeros: the sum is then +0, never -0. Here
// that +0 is added once, at the end: in between, the sign of a zero changes nothing.

void mergeColumns(const float* __restrict even, const float* __restrict odd, int width, float* __restrict row) {
  for (int x = 0; x < width + 2; ++x) {
    row[2 * x] = even[x] + 0.0f;
    row[2 * x + 1] = odd[x] + 0.0f;
  }
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

template <Taps taps>
inline float imagePixel(const float* even, const float* odd, int x, Psf h) {
  float sum = odd[x] * h.t1;
  if constexpr (taps != Taps::allButFirst) {
    sum = even[x] * h.t0 + sum;
  }
  sum = sum + even[x + 1] * h.t2 + odd[x + 1] * h.t3 + even[x + 2] * h.t4;
  if constexpr (taps != Taps::allButLast) {
    sum = sum + odd[x + 2] * h.t5;
  }
  return sum;
}

template <Taps taps>
void imageRows(const float* const even[2], const float* const odd[2], int width, const float* psfX, const float* psfY,
               float* __restrict older, float* __restrict newer, float* __restrict complete) {
  const float* __restrict evenA = even[0];
  const float* __restrict oddA = odd[0];
  const float* __restrict evenB = even[1];
  const float* __restrict oddB = odd[1];
  const Psf h(psfX);
  const Psf v(psfY);
#pragma GCC ivdep
  for (int x = 0; x < width; ++x) {
    const float a = imagePixel<taps>(evenA, oddA, x, h);
    const float b = imagePixel<taps>(evenB, oddB, x, h);
    complete[x] = older[x] + a * v.t4 + b * v.t5;
    older[x] = newer[x] + a * v.t2 + b * v.t3;
    newer[x] = a * v.t0 + b * v.t1;
  }
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

void spreadRows(const float* __restrict row, const float* __restrict rowBefore, const float* __restrict rowBeforeThat,
                int width, const float* psfY, float* __restrict upper, float* __restrict lower) {
  const Psf v(psfY);
  for (int x = 0; x < width; ++x) {
    upper[x] = row[x] * v.t0 + rowBefore[x] * v.t2 + rowBeforeThat[x] * v.t4;
    lower[x] = row[x] * v.t1 + rowBefore[x] * v.t3 + rowBeforeThat[x] * v.t5;
  }
}

template <Taps taps>
void addSpread(const float* __restrict row, int width, const float* psf, float* __restrict even,
               float* __restrict odd) {
  const Psf h(psf);
  for (int x = 0; x < width + 3; ++x) {
    const float ofEvenTaps = taps == Taps::allButFirst ? row[x - 1] * h.t2 + row[x - 2] * h.t4
                                                       : row[x] * h.t0 + row[x - 1] * h.t2 + row[x - 2] * h.t4;
    const float ofOddTaps = taps == Taps::allButLast ? row[x] * h.t1 + row[x - 1] * h.t3
                                                     : row[x] * h.t1 + row[x - 1] * h.t3 + row[x - 2] * h.t5;
    even[x] += ofEvenTaps;
    odd[x] += ofOddTaps;
  }
}

void addSpreadColumns(const float* row, int width, const float* psfX, float* even, float* odd) {
  switch (tapsInUse(psfX)) {
    case Taps::allButLast:
      return addSpread<Taps::allButLast>(row, width, psfX, even, odd);
    case Taps::allButFirst:
      return addSpread<Taps::allButFirst>(row, width, psfX, even, odd);
    case Taps::all:
      return addSpread<Taps::all>(row, width, psfX, even, odd);
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
  kernels.spreadRows = spreadRows;
  kernels.addSpreadColumns = addSpreadColumns;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
