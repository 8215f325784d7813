// Definitions of SparseConvolution, included by the sources that instantiate it. They specialise FactorTwoOperators, the
// operators at factor 2 with six taps, for their mask first.
#pragma once

#include "vision/superresolution/detail/base/BoxFilter.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/operators/PlainOperators.h"
#include "vision/superresolution/detail/operators/RollingOperators.h"
#include "vision/superresolution/shared/SparseConvolution.h"

namespace movra::vision {

template <class Mask>
SparseConvolution<Mask>::SparseConvolution(int hrWidth_, int hrHeight_, int psfWidth_, int psfHeight_, float factor_)
    : hrWidth(detail::checkedSize(hrWidth_)),
      hrHeight(detail::checkedSize(hrHeight_)),
      psfWidth(detail::checkedSize(psfWidth_)),
      psfHeight(detail::checkedSize(psfHeight_)),
      paddedWidth(detail::checkedPaddedSize(hrWidth, psfWidth)),
      paddedHeight(detail::checkedPaddedSize(hrHeight, psfHeight)),
      factor(factor_) {
  if (detail::RollingOperators::fits(hrWidth, hrHeight, psfWidth, psfHeight, factor)) {
    fast = std::make_unique<detail::FactorTwoOperators<Mask>>(hrWidth / 2, hrHeight / 2);
  } else {
    columnBuffer.create(paddedHeight, hrWidth, CV_32F);
  }
}

template <class Mask>
SparseConvolution<Mask>::~SparseConvolution() = default;

template <class Mask>
void SparseConvolution<Mask>::fullConvFromSparse(float* image, float* psfX, float* psfY, Mask* mask, float* out) {
  if (fast) {
    fast->fullConvFromSparse(image, psfX, psfY, mask, out);
  } else {
    plainOperators(psfX, psfY).fullConvFromSparse(image, mask, columnBuffer.ptr<float>(), out);
  }
}

template <class Mask>
void SparseConvolution<Mask>::validCorrToSparse(float* hr, float* psfX, float* psfY, float* out) {
  if (fast) {
    fast->validCorrToSparse(hr, psfX, psfY, out);
  } else {
    plainOperators(psfX, psfY).validCorrToSparse(hr, columnBuffer.ptr<float>(), out);
  }
}

template <class Mask>
void SparseConvolution<Mask>::blurImageMeanFilter(cv::Mat_<float>& in, int radius, cv::Mat_<float>& out) {
  const cv::Mat_<float> source = in.isContinuous() ? in : in.clone();  // also keeps it if `out` is the same matrix
  out.create(source.size());
  cv::Mat_<float> result = out.isContinuous() ? out : cv::Mat_<float>(source.size());
  if (source.empty()) {
    return;
  }
  detail::BoxFilter(source.cols).apply(source.ptr<float>(), source.rows, radius, result.ptr<float>());
  if (result.data != out.data) {
    result.copyTo(out);
  }
}

template <class Mask>
detail::PlainOperators SparseConvolution<Mask>::plainOperators(const float* psfX, const float* psfY) const {
  constexpr int rowStride = 2;  // whatever the factor
  const detail::SparseGrid grid(hrWidth, hrHeight, factor, rowStride);
  return {grid, paddedWidth, paddedHeight, psfWidth, psfHeight, psfX, psfY};
}

}  // namespace movra::vision
