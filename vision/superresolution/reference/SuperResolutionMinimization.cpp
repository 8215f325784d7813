#include "vision/superresolution/reference/SuperResolutionMinimization.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/reference/Points.h"
#include "vision/superresolution/shared/TvMinimization.inl"

namespace movra::vision {

namespace detail {

template <>
struct SolverTraits<SuperResolutionConvolution> : WholeImageTraits<SuperResolutionConvolution> {
  static constexpr bool servesAnyFactor = true;
};

}  // namespace detail

template class TvMinimization<SuperResolutionConvolution>;

namespace {

bool hasContrast(const float* image, std::ptrdiff_t size) {
  const bool finite = std::all_of(image, image + size, [](float value) { return std::isfinite(value); });
  return finite && std::any_of(image, image + size, [=](float value) { return value != image[0]; });
}

}  // namespace

SuperResolutionMinimization::SuperResolutionMinimization(int width_, int height_, int frameCount, float factor)
    : TvMinimization(width_, height_, frameCount, factor),
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
