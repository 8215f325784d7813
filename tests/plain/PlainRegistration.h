#pragma once

#include <cfloat>
#include <initializer_list>
#include <vector>

#include <opencv2/core.hpp>

#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/reference/SuperResolutionConvolution.h"

namespace movra::test {

/// The fine registration step as plain loops over whole images: what the production step has to equal bit for bit.
///
/// Sums over a rectangle have the documented shape: partial sum (column mod 16) of the rectangle, combined in halves.
class PlainFineStep {
 public:
  float regError = 1e-4f;
  int blurRadius = 3;

  PlainFineStep(int width, int height);

  void setReference(const float* blurredReference);

  /// Complete shift of a frame whose whole-pixel shift is `coarse`; sets the mask where the frame is trusted. The frames
  /// must overlap.
  Shift step(const float* blurredReference, const float* blurredFrame, cv::Point_<int> coarse, char* mask);

 private:
  /// Sum over rectangles of the float products `term(i)`.
  template <class Term>
  double sumOver(std::initializer_list<cv::Rect> areas, Term term) const;
  template <class Term>
  void addOver(const cv::Rect& area, double* sums, Term term) const;

  int width;
  int height;
  vision::SuperResolutionConvolution boxFilter;
  Image gradX, gradY, residual, residualBlurred;
  float sumXX = 0, sumXY = 0, sumYY = 0;
};

/// Corner-based registration as plain loops around calls of OpenCV: the yardstick of the production classes' speed, and
/// equal to them bit for bit.
class PlainRegistration {
 public:
  PlainRegistration(int width, int height, int frameCount);

  void setRegError(float maximumError) { fine.regError = maximumError; }

  void prepareFrame(float* frame);

  /// Arguments and result of CornerRegistration::doRegistration.
  int doRegistration(int frameCount, int refIndex, float** frames, Shift* shifts, char** masks, float** shiftedFrames);

 private:
  bool track(std::size_t ref, std::size_t frame, cv::Point_<int>& coarse) const;

  int width;
  int height;
  std::size_t capacity;
  PlainFineStep fine;
  std::vector<cv::Mat_<float>> blurred;
  std::vector<std::vector<cv::Mat>> pyramids;
  std::vector<cv::Point_<float>> corners;
  float displayMax = -FLT_MAX, displayMin = FLT_MAX, displayScale = 1, displayOffset = 0;
};

}  // namespace movra::test
