#include "vision/superresolution/SrFloatNeonConvolution.h"

#include "vision/superresolution/detail/operators/NeonOperators.h"
#include "vision/superresolution/shared/SparseConvolution.inl"

namespace movra::vision {

namespace detail {

template <>
class FactorTwoOperators<float> : public NeonOperators {
 public:
  using NeonOperators::NeonOperators;
};

}  // namespace detail

template class SparseConvolution<float>;

}  // namespace movra::vision
