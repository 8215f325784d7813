#pragma once

#include <opencv2/core.hpp>

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/base/BoxFilter.h"

namespace movra::vision::detail {

/// The fine step that all registrations share: one linearised least-squares step (B. D. Lucas and T. Kanade) from a
/// whole-pixel shift, on blurred images of `height` rows of `width` floats, and the mask of the pixels that it fits.
class FineRegistration {
 public:
  FineRegistration(int width, int height);

  /// Limit of the filtered residual below which a pixel is trusted.
  float regError = 1e-4f;
  /// Half width of the mean filter over the residual.
  int regErrBlurRadius = 3;

  /// Computes the gradients of the blurred reference and their sums.
  void setReference(const float* reference);

  /// Refines `coarse`, the frame's whole-pixel shift, and sets the mask to 1 at the trusted pixels that the frame covers,
  /// on the reference's grid. Returns the complete shift. It is not finite, or absurdly large, when the overlap has no
  /// structure in some direction; no pixel is trusted then.
  template <class Mask>
  cv::Point_<float> step(const float* reference, const float* frame, cv::Point_<int> coarse, Mask* mask);

 private:
  /// Sums over an overlap: of gradX^2, gradX gradY, gradY^2, gradX D, gradY D; D = frame - reference.
  struct NormalEquations {
    double a, b, c, e1, e2;
  };

  NormalEquations normalEquations(const float* reference, const float* frame, const cv::Rect& inReference,
                                  const cv::Rect& inFrame, cv::Point_<int> coarse);
  void addBand(const cv::Rect& band, double* sums) const;
  void residualRow(const float* reference, const float* frame, int y, const cv::Rect& inReference,
                   cv::Point_<int> coarse, cv::Point_<float> rest, float scale, float* residual) const;

  std::ptrdiff_t at(int y, int x) const { return static_cast<std::ptrdiff_t>(y) * width + x; }

  int width;
  int height;
  AlignedFloats gradX;
  AlignedFloats gradY;
  AlignedFloats residual;         // the rows that the filter takes at once
  AlignedFloats residualBlurred;  // one row
  BoxFilter boxFilter;
  float sumXX = 0;  // over the whole reference
  float sumXY = 0;
  float sumYY = 0;
};

}  // namespace movra::vision::detail
