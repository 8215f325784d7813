#include "vision/superresolution/detail/operators/RollingOperators.h"

#include <algorithm>

#include "vision/superresolution/detail/operators/PsfKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int columnsBeyond = 16;  // the kernels need three
constexpr int sharedRowCount = 10;

}  // namespace

bool RollingOperators::serve(int hrWidth, int hrHeight, int psfWidth, int psfHeight, float factor) {
  return factor == 2.0f && psfWidth == taps && psfHeight == taps && hrWidth > 0 && hrHeight > 0 && hrWidth % 2 == 0 &&
         hrHeight % 2 == 0;
}

RollingOperators::RollingOperators(int width, int height, int frameCount)
    : kernels(&psfKernels()),
      lowWidth(width),
      lowHeight(height),
      paddedWidth(2 * width + taps - 1),
      stride(static_cast<std::size_t>(alignedWidth(width) + columnsBeyond)),
      frameRows(makeAlignedFloats(static_cast<std::size_t>(frameCount) * rowsPerFrame * stride)),
      sharedRows(makeAlignedFloats(sharedRowCount * stride)) {
  float* next = sharedRows.get();
  const auto takeRow = [&] {
    float* row = next;
    next += stride;
    return row;
  };
  for (int i = 0; i < 2; ++i) {
    even[i] = takeRow();
    odd[i] = takeRow();
    evenSum[i] = takeRow();
    oddSum[i] = takeRow();
  }
  discardedRow = takeRow();
  zeros = takeRow();
}

void RollingOperators::enter(const float* x, int s) {
  kernels = &psfKernels();
  for (int i = 0; i < 2; ++i) {
    kernels->splitColumns(x + static_cast<std::ptrdiff_t>(2 * s + i) * paddedWidth, lowWidth, even[i], odd[i]);
  }
}

void RollingOperators::image(int k, const float* psfX, const float* psfY, float* sampleRow) {
  kernels->imageRowPair(even, odd, lowWidth, psfX, psfY, frameRow(k, 0), frameRow(k, 1), sampleRow);
}

float* RollingOperators::sampleRow(int k, int r) {
  return frameRow(k, ringStart + r % 3);
}

const float* RollingOperators::sampleRowOrZeros(int k, int r) {
  return 0 <= r && r < lowHeight ? sampleRow(k, r) : zeros;
}

void RollingOperators::openOnto(const float* out, int b) {
  kernels = &psfKernels();
  for (int i = 0; i <= (hasSecondRow(b) ? 1 : 0); ++i) {
    kernels->splitColumns(out + static_cast<std::ptrdiff_t>(2 * b + i) * paddedWidth, lowWidth, evenSum[i], oddSum[i]);
  }
}

void RollingOperators::openOntoZeros() {
  kernels = &psfKernels();
  for (int i = 0; i < 2; ++i) {
    std::fill_n(evenSum[i], lowWidth + 3, 0.0f);
    std::fill_n(oddSum[i], lowWidth + 3, 0.0f);
  }
}

void RollingOperators::spread(int k, int b, const float* psfX, const float* psfY) {
  kernels->addSpread(sampleRowOrZeros(k, b), sampleRowOrZeros(k, b - 1), sampleRowOrZeros(k, b - 2), lowWidth, psfX,
                     psfY, evenSum, oddSum);
}

void RollingOperators::close(float* out, int b) const {
  for (int i = 0; i <= (hasSecondRow(b) ? 1 : 0); ++i) {
    kernels->mergeColumns(evenSum[i], oddSum[i], lowWidth, out + static_cast<std::ptrdiff_t>(2 * b + i) * paddedWidth);
  }
}

}  // namespace movra::vision::detail
