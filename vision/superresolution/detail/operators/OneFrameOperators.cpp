#include "vision/superresolution/detail/operators/OneFrameOperators.h"

#include "vision/superresolution/detail/operators/PsfKernels.h"
#include "vision/superresolution/detail/operators/SparseGrid.h"

namespace movra::vision::detail {

OneFrameOperators::OneFrameOperators(int lowWidth, int lowHeight)
    : width(lowWidth), height(lowHeight), rolling(lowWidth, lowHeight, 1) {}

void OneFrameOperators::fullConvFromSparse(const float* image, const float* psfX, const float* psfY, const char* mask,
                                           float* out) {
  for (int b = 0; b < rolling.outputPairs(); ++b) {
    if (b < height) {
      const Index begin = Index{b} * width;
      psfKernels().weightRow(mask + begin, image + begin, width, rolling.sampleRow(0, b));
    }
    rolling.openOntoZeros();
    rolling.spread(0, b, psfX, psfY);
    rolling.close(out, b);
  }
}

void OneFrameOperators::validCorrToSparse(const float* hr, const float* psfX, const float* psfY, float* out) {
  for (int s = 0; s < rolling.inputPairs(); ++s) {
    rolling.enter(hr, s);
    rolling.image(0, psfX, psfY, s >= 2 ? out + Index{s - 2} * width : rolling.discarded());
  }
  for (Index i = 0; i < Index{width} * height; ++i) {
    out[i] += 0.0f;  // a sum of zeros is +0
  }
}

}  // namespace movra::vision::detail
