#include "vision/superresolution/detail/operators/SparseOperators.h"

#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/operators/RollingOperators.h"

namespace movra::vision::detail {

template <class Mask>
SparseOperators<Mask>::SparseOperators(int hrWidth_, int hrHeight_, int psfWidth_, int psfHeight_, float factor_)
    : hrWidth(checkedSize(hrWidth_)),
      hrHeight(checkedSize(hrHeight_)),
      psfWidth(checkedSize(psfWidth_)),
      psfHeight(checkedSize(psfHeight_)),
      paddedWidth(checkedPaddedSize(hrWidth, psfWidth)),
      paddedHeight(checkedPaddedSize(hrHeight, psfHeight)),
      factor(factor_) {
  if (RollingOperators::serve(hrWidth, hrHeight, psfWidth, psfHeight, factor)) {
    fast = std::make_unique<Fast>(hrWidth / 2, hrHeight / 2);
  } else {
    columnBuffer = makeAlignedFloats(static_cast<std::size_t>(elementCount(paddedHeight, hrWidth)));
  }
}

template <class Mask>
void SparseOperators<Mask>::fullConvFromSparse(const float* image, const float* psfX, const float* psfY,
                                               const Mask* mask, float* out) {
  if (fast) {
    fast->fullConvFromSparse(image, psfX, psfY, mask, out);
  } else {
    plainOperators(psfX, psfY).fullConvFromSparse(image, mask, columnBuffer.get(), out);
  }
}

template <class Mask>
void SparseOperators<Mask>::validCorrToSparse(const float* hr, const float* psfX, const float* psfY, float* out) {
  if (fast) {
    fast->validCorrToSparse(hr, psfX, psfY, out);
  } else {
    plainOperators(psfX, psfY).validCorrToSparse(hr, columnBuffer.get(), out);
  }
}

template <class Mask>
PlainOperators SparseOperators<Mask>::plainOperators(const float* psfX, const float* psfY) const {
  constexpr int rowStride = 2;  // whatever the factor
  const SparseGrid grid(hrWidth, hrHeight, factor, rowStride);
  return {grid, paddedWidth, paddedHeight, psfWidth, psfHeight, psfX, psfY};
}

template class SparseOperators<char>;
template class SparseOperators<float>;

}  // namespace movra::vision::detail
