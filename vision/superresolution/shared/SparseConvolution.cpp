#include "vision/superresolution/shared/SparseConvolution.h"

#include "vision/superresolution/detail/base/BoxFilter.h"
#include "vision/superresolution/detail/operators/SparseOperators.h"

namespace movra::vision {

template <class Weight>
SparseConvolution<Weight>::SparseConvolution(int hrWidth, int hrHeight, int psfWidth, int psfHeight, float factor)
    : operators(std::make_unique<detail::SparseOperators<Weight>>(hrWidth, hrHeight, psfWidth, psfHeight, factor)) {}

template <class Weight>
SparseConvolution<Weight>::~SparseConvolution() = default;

template <class Weight>
void SparseConvolution<Weight>::fullConvFromSparse(float* image, float* psfX, float* psfY, Mask* mask, float* out) {
  operators->fullConvFromSparse(image, psfX, psfY, mask, out);
}

template <class Weight>
void SparseConvolution<Weight>::validCorrToSparse(float* hr, float* psfX, float* psfY, float* out) {
  operators->validCorrToSparse(hr, psfX, psfY, out);
}

template <class Weight>
void SparseConvolution<Weight>::blurImageMeanFilter(cv::Mat_<float>& in, int radius, cv::Mat_<float>& out) {
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

template class SparseConvolution<char>;
template class SparseConvolution<float>;

}  // namespace movra::vision
