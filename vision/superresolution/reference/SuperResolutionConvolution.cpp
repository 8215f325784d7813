#include "vision/superresolution/reference/SuperResolutionConvolution.h"

#include <algorithm>

#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/operators/PlainOperators.h"

namespace movra::vision {

using detail::elementCount;
using detail::Index;
using detail::SparseGrid;

namespace {

/// Mean filter of one row or column, whose elements are `stride` apart.
///
/// The order of the float operations is fixed: the sum gains the entering element, gives the mean, loses the
/// leaving one. Whole windows are multiplied by the reciprocal of their length, cut ones are divided.
void meanFilterLine(const float* in, Index stride, Index length, int radius, float* out) {
  const Index reach = std::min<Index>(radius, length);  // a wider window holds the same elements
  const Index window = 2 * reach + 1;
  const float reciprocal = 1.0f / static_cast<float>(window);

  float sum = 0.0f;
  for (Index x = 0; x < reach; ++x) {
    sum += in[x * stride];
  }
  for (Index x = 0; x < length; ++x) {
    if (x + reach < length) {
      sum += in[(x + reach) * stride];
    }
    const Index count = std::min(x + reach, length - 1) - std::max<Index>(x - reach, 0) + 1;
    out[x * stride] = count == window ? sum * reciprocal : sum / static_cast<float>(count);
    if (x >= reach) {
      sum -= in[(x - reach) * stride];
    }
  }
}

}  // namespace

SuperResolutionConvolution::SuperResolutionConvolution(int hrWidth_, int hrHeight_, int psfWidth_, int psfHeight_,
                                                       float factor_)
    : hrWidth(hrWidth_),
      hrHeight(hrHeight_),
      psfWidth(psfWidth_),
      psfHeight(psfHeight_),
      paddedWidth(detail::checkedPaddedSize(hrWidth_, psfWidth_)),
      paddedHeight(detail::checkedPaddedSize(hrHeight_, psfHeight_)),
      factor(factor_),
      // The box filter needs hrHeight rows, which are more than the padded ones if the kernel has no taps.
      buffer(new float[static_cast<std::size_t>(elementCount(std::max(paddedHeight, hrHeight), hrWidth))]) {}

int SuperResolutionConvolution::fullConvFromSparse(float* image, float* psfX, float* psfY, char* mask, float* out) {
  operators(psfX, psfY).fullConvFromSparse(image, mask, buffer.get(), out);
  return 0;
}

int SuperResolutionConvolution::validCorrToSparse(float* hr, float* psfX, float* psfY, float* out) {
  operators(psfX, psfY).validCorrToSparse(hr, buffer.get(), out);
  return 0;
}

detail::PlainOperators SuperResolutionConvolution::operators(const float* psfX, const float* psfY) const {
  return {SparseGrid(hrWidth, hrHeight, factor), paddedWidth, paddedHeight, psfWidth, psfHeight, psfX, psfY};
}

float SuperResolutionConvolution::sameConvOnes(float* in, int radius, float* out) {
  if (radius <= 0) {
    std::copy_n(in, elementCount(hrHeight, hrWidth), out);
    return 0.0f;
  }
  for (Index y = 0; y < hrHeight; ++y) {
    meanFilterLine(in + y * hrWidth, 1, hrWidth, radius, buffer.get() + y * hrWidth);
  }
  for (Index x = 0; x < hrWidth; ++x) {
    meanFilterLine(buffer.get() + x, hrWidth, hrHeight, radius, out + x);
  }
  return 0.0f;
}

}  // namespace movra::vision
