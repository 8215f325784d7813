#include "vision/superresolution/SrFloatNeonMinimization.h"

#include "vision/superresolution/shared/TvMinimization.inl"

namespace movra::vision {

namespace detail {

/// Four floats are room for a vector that hangs over the last element.
template <>
struct SolverTraits<SrFloatNeonConvolution> : WholeImageTraits<SrFloatNeonConvolution, 4> {};

}  // namespace detail

template class TvMinimization<SrFloatNeonConvolution>;

}  // namespace movra::vision
