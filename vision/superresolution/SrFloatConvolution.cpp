#include "vision/superresolution/SrFloatConvolution.h"

#include <algorithm>

#include "vision/superresolution/detail/BoxFilter.h"
#include "vision/superresolution/detail/PlainOperators.h"
#include "vision/superresolution/detail/PsfKernels.h"
#include "vision/superresolution/detail/RollingOperators.h"
#include "vision/superresolution/detail/Sizes.h"

namespace movra::vision {

using detail::Index;
using detail::RollingOperators;

SrFloatConvolution::SrFloatConvolution(int hrWidth_, int hrHeight_, int psfWidth_, int psfHeight_, float factor_)
    : hrWidth(detail::checkedSize(hrWidth_)),
      hrHeight(detail::checkedSize(hrHeight_)),
      psfWidth(detail::checkedSize(psfWidth_)),
      psfHeight(detail::checkedSize(psfHeight_)),
      paddedWidth(detail::checkedPaddedSize(hrWidth, psfWidth)),
      paddedHeight(detail::checkedPaddedSize(hrHeight, psfHeight)),
      factor(factor_) {
  if (RollingOperators::fits(hrWidth, hrHeight, psfWidth, psfHeight, factor)) {
    rolling = std::make_unique<RollingOperators>(hrWidth / 2, hrHeight / 2, 1);
  } else {
    columnBuffer.create(paddedHeight, hrWidth, CV_32F);
  }
}

SrFloatConvolution::~SrFloatConvolution() = default;

void SrFloatConvolution::fullConvFromSparse(float* image, float* psfX, float* psfY, char* mask, float* out) {
  if (!rolling) {
    plainOperators(psfX, psfY).fullConvFromSparse(image, mask, columnBuffer.ptr<float>(), out);
    return;
  }
  const int width = hrWidth / 2;
  for (int b = 0; b < rolling->outputPairs(); ++b) {
    if (b < hrHeight / 2) {
      const Index begin = Index{b} * width;
      detail::psfKernels().weightRow(mask + begin, image + begin, width, rolling->sampleRow(0, b));
    }
    rolling->openOntoZeros();
    rolling->spread(0, b, psfX, psfY);
    rolling->close(out, b);
  }
}

void SrFloatConvolution::validCorrToSparse(float* hr, float* psfX, float* psfY, float* out) {
  if (!rolling) {
    plainOperators(psfX, psfY).validCorrToSparse(hr, columnBuffer.ptr<float>(), out);
    return;
  }
  const int width = hrWidth / 2;
  for (int s = 0; s < rolling->inputPairs(); ++s) {
    rolling->enter(hr, s);
    rolling->image(0, psfX, psfY, s >= 2 ? out + Index{s - 2} * width : rolling->discarded());
  }
  for (Index i = 0; i < Index{width} * (hrHeight / 2); ++i) {
    out[i] += 0.0f;  // a sum of zeros is +0
  }
}

void SrFloatConvolution::blurImageMeanFilter(cv::Mat_<float>& in, int radius, cv::Mat_<float>& out) {
  const cv::Mat_<float> source = in.isContinuous() ? in : in.clone();  // also keeps it when `out` is the same matrix
  cv::Mat_<float> between(source.size());
  out.create(source.size());
  cv::Mat_<float> result = out.isContinuous() ? out : cv::Mat_<float>(source.size());
  if (source.empty()) {
    return;
  }
  detail::BoxFilter(source.cols).apply(source.ptr<float>(), source.rows, radius, between.ptr<float>(),
                                       result.ptr<float>());
  if (result.data != out.data) {
    result.copyTo(out);
  }
}

detail::PlainOperators SrFloatConvolution::plainOperators(const float* psfX, const float* psfY) const {
  return {detail::SparseGrid(hrWidth, hrHeight, factor, detail::fixedRowStride),
          paddedWidth, paddedHeight, psfWidth, psfHeight, psfX, psfY};
}

}  // namespace movra::vision
