#include "vision/superresolution/reference/SuperResolutionMinimization.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/solver/TvSolver.h"
#include "vision/superresolution/detail/solver/WholeImageDataTerm.h"
#include "vision/superresolution/reference/Points.h"
#include "vision/superresolution/reference/SuperResolutionConvolution.h"

namespace movra::vision {

namespace {

std::unique_ptr<detail::TvSolver<char>> makeSolver(const detail::ReconstructionSize& size) {
  detail::TvSolver<char>::Setup setup;
  setup.dataTerm = std::make_unique<detail::WholeImageDataTerm<SuperResolutionConvolution>>(size);
  setup.placement = detail::PsfPlacement::anyFactor;
  return std::make_unique<detail::TvSolver<char>>(size, std::move(setup));
}

bool hasContrast(const float* image, std::ptrdiff_t size) {
  const bool finite = std::all_of(image, image + size, [](float value) { return std::isfinite(value); });
  return finite && std::any_of(image, image + size, [=](float value) { return value != image[0]; });
}

}  // namespace

SuperResolutionMinimization::SuperResolutionMinimization(int width_, int height_, int frameCount, float factor)
    : TvMinimization(makeSolver(detail::reconstructionSize(width_, height_, frameCount, factor))),
      width(width_),
      height(height_),
      points(static_cast<std::size_t>(frameCount)) {}

SuperResolutionMinimization::~SuperResolutionMinimization() = default;

int SuperResolutionMinimization::minimize(int count, int refIndex, float** frames, const PointF* shifts, char** masks,
                                          float* out) {
  if (refIndex < 0 || refIndex >= count || static_cast<std::size_t>(count) > points.size()) {
    return noFrames;
  }
  if (!hasContrast(frames[refIndex], static_cast<std::ptrdiff_t>(width) * height)) {
    return noContrast;
  }
  std::transform(shifts, shifts + count, points.begin(), detail::toCvPoint);
  return TvMinimization::minimize(count, refIndex, frames, points.data(), masks, out);
}

}  // namespace movra::vision
