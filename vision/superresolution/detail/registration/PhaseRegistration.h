#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "vision/superresolution/SrFloatFft2d.h"
#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/registration/FineRegistration.h"

namespace movra::vision::detail {

/// Peak of a phase-correlation surface, height x width, as a signed shift. It is the first of equal maxima; one that is
/// not above the value at (0, 0) gives no shift. Rows and columns beyond half the size are negative shifts; the half
/// itself is a positive one. NaN is never a peak.
cv::Point_<int> correlationPeak(const float* correlation, int width, int height);

/// The registration that the phase-correlation classes share. Frames are given with their half spectra (the layout is
/// that of SrFloatFft2d). The whole-pixel shift is the peak of the phase correlation (C. D. Kuglin and D. C. Hines);
/// FineRegistration refines it on images blurred by multiplication with the spectrum of a Gaussian.
///
/// Nothing of the caller's is kept after registerFrames, except by opticalFlow and phaseCorrelation, which work on the
/// spectra and the blurred images of the last pair.
class PhaseRegistration {
 public:
  using Spectrum = float (*)[2];

  /// @param fft transforms of this size; used, not owned
  /// @param gaussRadius see setGaussRadius; where it does not fit, the largest radius that does is used
  PhaseRegistration(int width, int height, SrFloatFft2d& fft, int gaussRadius);

  /// Radius of the blur in pixels; its variance is 3/25 of the radius squared.
  /// @throws movra::Exception if twice the radius is not less than width and height; nothing is changed
  void setGaussRadius(int radius);
  int getGaussRadius() const { return gaussRadius; }

  /// Measures the complete shift of each frame and marks its trusted pixels.
  /// @param frames, spectra, masks, shifts one per frame; masks and shifts are written
  void registerFrames(int count, int refIndex, float** frames, const Spectrum* spectra, char** masks,
                      cv::Point_<float>* shifts);

  /// Clears the masks and computes the gradients of the blurred reference.
  void initialize(char** masks, int count);

  /// Whole-pixel shift of the frame against the reference.
  cv::Point_<int> phaseCorrelation();

  /// Refines a whole-pixel shift; see FineRegistration::step.
  cv::Point_<float> opticalFlow(cv::Point_<int> coarse, char* mask);

  FineRegistration fine;

 private:
  void makeGauss(int radius);
  void blur(const float* image, Spectrum spectrum, float* blurred);

  int width;
  int height;
  int numPixels;
  int numBins;
  SrFloatFft2d& fft;
  int gaussRadius;                     // as asked for
  int usedRadius = 0;                  // that fits
  std::unique_ptr<float[]> gaussTaps;  // one side and the middle: usedRadius + 1
  std::unique_ptr<float[][2]> gaussSpectrum;
  std::unique_ptr<float[][2]> product;
  Spectrum refSpectrum = nullptr;
  Spectrum frameSpectrum = nullptr;
  AlignedFloats correlation;
  AlignedFloats refBlurred;
  AlignedFloats frameBlurred;
};

}  // namespace movra::vision::detail
