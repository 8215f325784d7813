#include "vision/superresolution/SrFloatNeonMinimization.h"

#include "vision/superresolution/SrFloatNeonConvolution.h"
#include "vision/superresolution/detail/solver/TvSolver.h"
#include "vision/superresolution/detail/solver/WholeImageDataTerm.h"

namespace movra::vision {

namespace {

std::unique_ptr<detail::TvSolver<float>> makeVectorSolver(const detail::ReconstructionSize& size) {
  detail::TvSolver<float>::Setup setup;
  setup.slack = 4;  // room for a vector of four that hangs over the last element
  setup.dataTerm = std::make_unique<detail::WholeImageDataTerm<SrFloatNeonConvolution>>(size, setup.slack);
  return std::make_unique<detail::TvSolver<float>>(size, std::move(setup));
}

}  // namespace

SrFloatNeonMinimization::SrFloatNeonMinimization(int width, int height, int frameCount, float factor)
    : TvMinimization(makeVectorSolver(detail::reconstructionSize(width, height, frameCount, factor))) {}

}  // namespace movra::vision
