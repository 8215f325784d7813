#pragma once

#include <memory>
#include <type_traits>

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/operators/NeonOperators.h"
#include "vision/superresolution/detail/operators/OneFrameOperators.h"
#include "vision/superresolution/detail/operators/PlainOperators.h"

namespace movra::vision::detail {

/// What SparseConvolution does; see there. Factor 2 has fast operators, one kind per type of mask; other geometries have
/// plain loops. All give the same bits.
template <class Mask>
class SparseOperators {
 public:
  SparseOperators(int hrWidth, int hrHeight, int psfWidth, int psfHeight, float factor);

  void fullConvFromSparse(const float* image, const float* psfX, const float* psfY, const Mask* mask, float* out);
  void validCorrToSparse(const float* hr, const float* psfX, const float* psfY, float* out);

 private:
  using Fast = std::conditional_t<std::is_same_v<Mask, char>, OneFrameOperators, NeonOperators>;

  PlainOperators plainOperators(const float* psfX, const float* psfY) const;

  int hrWidth;
  int hrHeight;
  int psfWidth;
  int psfHeight;
  int paddedWidth;
  int paddedHeight;
  float factor;
  std::unique_ptr<Fast> fast;  // null where they do not serve
  AlignedFloats columnBuffer;  // between the two separable passes of the plain loops
};

extern template class SparseOperators<char>;
extern template class SparseOperators<float>;

}  // namespace movra::vision::detail
