#include "vision/superresolution/detail/PsfKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

void splitColumns(const float* __restrict row, int width, float* __restrict even, float* __restrict odd) {
  for (int x = 0; x < width + 2; ++x) {
    even[x] = row[2 * x];
    odd[x] = row[2 * x + 1];
  }
  even[width + 2] = row[2 * width + 4];
}

void mergeColumns(const float* __restrict even, const float* __restrict odd, int width, float* __restrict row) {
  for (int x = 0; x < width + 2; ++x) {
    row[2 * x] = even[x];
    row[2 * x + 1] = odd[x];
  }
  row[2 * width + 4] = even[width + 2];
}

// The plain loops start each sum at +0, which matters only where all terms are zeros: they then give +0. Here that
// start is left out, because every such zero is added to something in addSpreadColumns or below, where the start is kept.

void imageRowPair(const float* const even[2], const float* const odd[2], int width, const float* psfX, const float* psfY,
                  float* __restrict older, float* __restrict newer, float* __restrict complete) {
  const float* __restrict evenA = even[0];
  const float* __restrict oddA = odd[0];
  const float* __restrict evenB = even[1];
  const float* __restrict oddB = odd[1];
  const float h0 = psfX[0], h1 = psfX[1], h2 = psfX[2], h3 = psfX[3], h4 = psfX[4], h5 = psfX[5];
  const float v0 = psfY[0], v1 = psfY[1], v2 = psfY[2], v3 = psfY[3], v4 = psfY[4], v5 = psfY[5];
  for (int x = 0; x < width; ++x) {
    const float a = evenA[x] * h0 + oddA[x] * h1 + evenA[x + 1] * h2 + oddA[x + 1] * h3 + evenA[x + 2] * h4 +
                    oddA[x + 2] * h5;
    const float b = evenB[x] * h0 + oddB[x] * h1 + evenB[x + 1] * h2 + oddB[x + 1] * h3 + evenB[x + 2] * h4 +
                    oddB[x + 2] * h5;
    complete[x] = older[x] + a * v4 + b * v5 + 0.0f;
    older[x] = newer[x] + a * v2 + b * v3;
    newer[x] = a * v0 + b * v1;
  }
}

void weightRow(const char* __restrict mask, const float* __restrict row, int width, float* __restrict weighted) {
  for (int x = 0; x < width; ++x) {
    weighted[x] = static_cast<float>(static_cast<signed char>(mask[x])) * row[x];
  }
}

void spreadRows(const float* __restrict row, const float* __restrict rowBefore, const float* __restrict rowBeforeThat,
                int width, const float* psfY, float* __restrict upper, float* __restrict lower) {
  const float v0 = psfY[0], v1 = psfY[1], v2 = psfY[2], v3 = psfY[3], v4 = psfY[4], v5 = psfY[5];
  for (int x = 0; x < width; ++x) {
    upper[x] = row[x] * v0 + rowBefore[x] * v2 + rowBeforeThat[x] * v4;
    lower[x] = row[x] * v1 + rowBefore[x] * v3 + rowBeforeThat[x] * v5;
  }
}

void addSpreadColumns(const float* __restrict row, int width, const float* psfX, float* __restrict even,
                      float* __restrict odd) {
  const float h0 = psfX[0], h1 = psfX[1], h2 = psfX[2], h3 = psfX[3], h4 = psfX[4], h5 = psfX[5];
  for (int x = 0; x < width + 3; ++x) {
    even[x] += 0.0f + row[x] * h0 + row[x - 1] * h2 + row[x - 2] * h4;
    odd[x] += 0.0f + row[x] * h1 + row[x - 1] * h3 + row[x - 2] * h5;
  }
}

}  // namespace

extern const PsfKernels psfKernels;
const PsfKernels psfKernels{splitColumns, mergeColumns, imageRowPair, weightRow, spreadRows, addSpreadColumns};

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
