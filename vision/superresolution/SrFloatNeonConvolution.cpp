#include "vision/superresolution/SrFloatNeonConvolution.h"

#include "vision/superresolution/SrFloatConvolution.h"
#include "vision/superresolution/detail/NeonOperators.h"
#include "vision/superresolution/detail/PlainOperators.h"
#include "vision/superresolution/detail/RollingOperators.h"
#include "vision/superresolution/detail/Sizes.h"

namespace movra::vision {

SrFloatNeonConvolution::SrFloatNeonConvolution(int hrWidth_, int hrHeight_, int psfWidth_, int psfHeight_,
                                               float factor_)
    : hrWidth(detail::checkedSize(hrWidth_)),
      hrHeight(detail::checkedSize(hrHeight_)),
      psfWidth(detail::checkedSize(psfWidth_)),
      psfHeight(detail::checkedSize(psfHeight_)),
      paddedWidth(detail::checkedPaddedSize(hrWidth, psfWidth)),
      paddedHeight(detail::checkedPaddedSize(hrHeight, psfHeight)),
      factor(factor_) {
  if (detail::RollingOperators::fits(hrWidth, hrHeight, psfWidth, psfHeight, factor)) {
    vectorised = std::make_unique<detail::NeonOperators>(hrWidth / 2, hrHeight / 2);
  } else {
    columnBuffer.create(paddedHeight, hrWidth, CV_32F);
  }
}

SrFloatNeonConvolution::~SrFloatNeonConvolution() = default;

void SrFloatNeonConvolution::fullConvFromSparse(float* image, float* psfX, float* psfY, float* mask,
                                                float* out) {
  if (vectorised) {
    vectorised->fullConvFromSparse(image, psfX, psfY, mask, out);
  } else {
    plainOperators(psfX, psfY).fullConvFromSparse(image, mask, columnBuffer.ptr<float>(), out);
  }
}

void SrFloatNeonConvolution::validCorrToSparse(float* hr, float* psfX, float* psfY, float* out) {
  if (vectorised) {
    vectorised->validCorrToSparse(hr, psfX, psfY, out);
  } else {
    plainOperators(psfX, psfY).validCorrToSparse(hr, columnBuffer.ptr<float>(), out);
  }
}

void SrFloatNeonConvolution::blurImageMeanFilter(cv::Mat_<float>& in, int radius, cv::Mat_<float>& out) {
  SrFloatConvolution::blurImageMeanFilter(in, radius, out);
}

detail::PlainOperators SrFloatNeonConvolution::plainOperators(const float* psfX, const float* psfY) const {
  const detail::SparseGrid grid(hrWidth, hrHeight, factor, detail::fixedRowStride);
  return {grid, paddedWidth, paddedHeight, psfWidth, psfHeight, psfX, psfY};
}

}  // namespace movra::vision
