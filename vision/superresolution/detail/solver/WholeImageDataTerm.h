#pragma once

#include <algorithm>

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/solver/DataTerm.h"
#include "vision/superresolution/detail/solver/ReconstructionSize.h"

namespace movra::vision::detail {

/// Data term over any convolution class, one band for the whole image.
template <class Convolution>
class WholeImageDataTerm : public DataTerm<typename Convolution::Mask> {
  using Base = DataTerm<typename Convolution::Mask>;

 public:
  using typename Base::Band;

  /// @param slack floats after each work array that vector loads may touch; they stay zero
  explicit WholeImageDataTerm(const ReconstructionSize& size, std::size_t slack = 0)
      : paddedHeight(size.paddedHeight),
        paddedSize(static_cast<std::size_t>(size.paddedWidth) * static_cast<std::size_t>(size.paddedHeight)),
        convolution(size.hrWidth, size.hrHeight, size.psfSize, size.psfSize, size.factor),
        lowResBuffer(
            makeAlignedFloats(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) + slack)),
        frameBuffer(makeAlignedFloats(paddedSize + slack)) {}

  int bandCount() const override { return 1; }
  Band band(int) const override { return {0, paddedHeight, paddedHeight}; }

  void addOperator(int, float* x, float* out) override {
    for (int k = 0; k < frames.count; ++k) {
      convolution.validCorrToSparse(x, frames.psfs->x(k), frames.psfs->y(k), lowResBuffer.get());
      addTranspose(k, lowResBuffer.get(), out);
    }
  }

  void backProject(int, float** images, float* out) override {
    std::fill_n(out, paddedSize, 0.0f);
    for (int k = 0; k < frames.count; ++k) {
      addTranspose(k, images[k], out);
    }
  }

 private:
  using Base::frames;

  void addTranspose(int k, float* image, float* out) {
    convolution.fullConvFromSparse(image, frames.psfs->x(k), frames.psfs->y(k), frames.masks[k], frameBuffer.get());
    for (std::size_t i = 0; i < paddedSize; ++i) {
      out[i] += frameBuffer[i];
    }
  }

  int paddedHeight;
  std::size_t paddedSize;
  Convolution convolution;
  AlignedFloats lowResBuffer;
  AlignedFloats frameBuffer;
};

}  // namespace movra::vision::detail
