#include "vision/superresolution/SrFloatMinimization.h"

#include "vision/superresolution/SrFloatConvolution.h"
#include "vision/superresolution/detail/operators/RollingOperators.h"
#include "vision/superresolution/detail/solver/FusedDataTerm.h"
#include "vision/superresolution/detail/solver/TvSolver.h"
#include "vision/superresolution/detail/solver/WholeImageDataTerm.h"

namespace movra::vision {

namespace {

std::unique_ptr<detail::DataTerm<char>> makeDataTerm(const detail::ReconstructionSize& size) {
  if (detail::RollingOperators::serve(size.hrWidth, size.hrHeight, size.psfSize, size.psfSize, size.factor)) {
    return std::make_unique<detail::FusedDataTerm>(size);
  }
  return std::make_unique<detail::WholeImageDataTerm<SrFloatConvolution>>(size);
}

std::unique_ptr<detail::TvSolver<char>> makeFusedSolver(const detail::ReconstructionSize& size) {
  detail::TvSolver<char>::Setup setup;
  setup.dataTerm = makeDataTerm(size);
  return std::make_unique<detail::TvSolver<char>>(size, std::move(setup));
}

}  // namespace

SrFloatMinimization::SrFloatMinimization(int width, int height, int frameCount, float factor)
    : TvMinimization(makeFusedSolver(detail::reconstructionSize(width, height, frameCount, factor))) {}

}  // namespace movra::vision
