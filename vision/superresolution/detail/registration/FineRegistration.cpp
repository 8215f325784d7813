#include "vision/superresolution/detail/registration/FineRegistration.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/base/Sums.h"
#include "vision/superresolution/detail/registration/RegistrationKernels.h"
#include "vision/superresolution/detail/registration/WholePixelMove.h"

namespace movra::vision::detail {

namespace {

void markBelow(const float* residual, float limit, int count, char* mask) {
  registrationKernels().markBelow(residual, limit, count, mask);
}

void markBelow(const float* residual, float limit, int count, float* mask) {
  registrationKernels().markBelowFloat(residual, limit, count, mask);
}

}  // namespace

FineRegistration::FineRegistration(int width_, int height_)
    : width(width_),
      height(height_),
      gradX(makeAlignedFloats(static_cast<std::size_t>(checkedArea(height_, width_)))),
      gradY(makeAlignedFloats(static_cast<std::size_t>(width_ * height_))),
      residual(makeAlignedFloats(boxRows * static_cast<std::size_t>(height_ > 0 ? width_ : 0))),
      residualBlurred(makeAlignedFloats(static_cast<std::size_t>(height_ > 0 ? width_ : 0))),
      boxFilter(height_ > 0 ? width_ : 0) {}

void FineRegistration::setReference(const float* reference) {
  const RegistrationKernels& kernels = registrationKernels();
  double sums[3 * partialSums] = {};
  for (int y = 0; y < height; ++y) {
    const int above = std::max(y - 1, 0);
    const int below = std::min(y + 1, height - 1);
    float* gx = gradX.get() + at(y, 0);
    float* gy = gradY.get() + at(y, 0);
    kernels.gradientRow(reference + at(y, 0), reference + at(above, 0), reference + at(below, 0),
                        below - above == 2 ? 0.5f : 1.0f, width, gx, gy);
    kernels.addGradientProducts(gx, gy, width, sums);
  }
  sumXX = static_cast<float>(combineSums(sums));
  sumXY = static_cast<float>(combineSums(sums + partialSums));
  sumYY = static_cast<float>(combineSums(sums + 2 * partialSums));
}

template <class Mask>
cv::Point_<float> FineRegistration::step(const float* reference, const float* frame, cv::Point_<int> coarse,
                                         Mask* mask) {
  const int sx = coarse.x;
  const int sy = coarse.y;
  if (!overlaps(coarse, width, height)) {
    return {static_cast<float>(sx), static_cast<float>(sy)};
  }
  const cv::Rect inReference = overlapInReference(coarse, width, height);
  const cv::Rect inFrame = inReference + coarse;

  const NormalEquations n = normalEquations(reference, frame, inReference, inFrame, coarse);
  const double det = n.a * n.c - n.b * n.b;
  const auto dx = static_cast<float>((n.b * n.e2 - n.c * n.e1) / det);
  const auto dy = static_cast<float>((n.b * n.e1 - n.a * n.e2) / det);

  const cv::Point_<float> shift(static_cast<float>(sx) + dx, static_cast<float>(sy) + dy);
  if (!std::isfinite(shift.x) || !std::isfinite(shift.y)) {
    return shift;
  }
  const cv::Point_<int> rounded(wholePixels(shift.x), wholePixels(shift.y));
  if (!overlaps(rounded, width, height)) {
    return shift;
  }
  const cv::Rect covered = overlapInReference(rounded, width, height);
  const auto scale = static_cast<float>(1.0 / (n.a + n.c));
  // The residual goes through the mean filter to the mask row by row, while it is in cache.
  boxFilter.run(
      height, regErrBlurRadius,
      [&](int y, int count) {
        for (int i = 0; i < count; ++i) {
          residualRow(reference, frame, y + i, inReference, coarse, {dx, dy}, scale, residual.get() + at(i, 0));
        }
        return residual.get();
      },
      [&](int) { return residualBlurred.get(); },
      [&](int y, const float* blurred) {
        if (covered.y <= y && y < covered.y + covered.height) {
          markBelow(blurred + covered.x, regError, covered.width, mask + at(y, covered.x));
        }
      });
  return shift;
}

// The gradient sums over the overlap are those over the whole reference less those over the bands outside it.
FineRegistration::NormalEquations FineRegistration::normalEquations(const float* reference, const float* frame,
                                                                    const cv::Rect& inReference,
                                                                    const cv::Rect& inFrame, cv::Point_<int> coarse) {
  double bandSums[3 * partialSums] = {};
  addBand({0, coarse.y >= 0 ? height - coarse.y : 0, width, std::abs(coarse.y)}, bandSums);
  addBand({coarse.x >= 0 ? width - coarse.x : 0, inReference.y, std::abs(coarse.x), inReference.height}, bandSums);

  double sums[2 * partialSums] = {};
  for (int y = 0; y < inReference.height; ++y) {
    const std::ptrdiff_t i = at(inReference.y + y, inReference.x);
    registrationKernels().addGradientTimesDifference(gradX.get() + i, gradY.get() + i, reference + i,
                                                     frame + at(inFrame.y + y, inFrame.x), inReference.width, sums);
  }
  return {static_cast<double>(sumXX) - combineSums(bandSums),
          static_cast<double>(sumXY) - combineSums(bandSums + partialSums),
          static_cast<double>(sumYY) - combineSums(bandSums + 2 * partialSums), combineSums(sums),
          combineSums(sums + partialSums)};
}

// Adds the gradient products of a band outside the overlap.
void FineRegistration::addBand(const cv::Rect& band, double* sums) const {
  for (int y = band.y; y < band.y + band.height; ++y) {
    const std::ptrdiff_t i = at(y, band.x);
    registrationKernels().addGradientProducts(gradX.get() + i, gradY.get() + i, band.width, sums);
  }
}

// Row y of the residual of the step; outside the overlap it is the limit.
void FineRegistration::residualRow(const float* reference, const float* frame, int y, const cv::Rect& inReference,
                                   cv::Point_<int> coarse, cv::Point_<float> rest, float scale, float* row) const {
  if (y < inReference.y || y >= inReference.y + inReference.height) {
    std::fill_n(row, width, regError);
    return;
  }
  const int begin = inReference.x;
  const int end = inReference.x + inReference.width;
  const std::ptrdiff_t i = at(y, begin);
  std::fill(row, row + begin, regError);
  registrationKernels().residualRow(rest.x, rest.y, scale, gradX.get() + i, gradY.get() + i, reference + i,
                                    frame + at(y + coarse.y, begin + coarse.x), inReference.width, row + begin);
  std::fill(row + end, row + width, regError);
}

template cv::Point_<float> FineRegistration::step(const float*, const float*, cv::Point_<int>, char*);
template cv::Point_<float> FineRegistration::step(const float*, const float*, cv::Point_<int>, float*);

}  // namespace movra::vision::detail
