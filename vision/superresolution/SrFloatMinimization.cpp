#include "vision/superresolution/SrFloatMinimization.h"

#include "vision/superresolution/detail/solver/FusedDataTerm.h"
#include "vision/superresolution/shared/TvMinimization.inl"

namespace movra::vision {

namespace detail {

template <>
struct SolverTraits<SrFloatConvolution> : WholeImageTraits<SrFloatConvolution> {
  static std::unique_ptr<DataTerm<char>> makeDataTerm(const ReconstructionSize& size, int frameCount) {
    if (RollingOperators::fits(size.hrWidth, size.hrHeight, size.psfSize, size.psfSize, size.factor)) {
      return std::make_unique<FusedDataTerm>(size.width, size.height, frameCount);
    }
    return WholeImageTraits::makeDataTerm(size, frameCount);
  }
};

}  // namespace detail

template class TvMinimization<SrFloatConvolution>;

}  // namespace movra::vision
