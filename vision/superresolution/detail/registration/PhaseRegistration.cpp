#include "vision/superresolution/detail/registration/PhaseRegistration.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/registration/SpectrumKernels.h"

namespace movra::vision::detail {

cv::Point_<int> correlationPeak(const float* correlation, int width, int height) {
  const int size = width * height;
  const float peak = spectrumKernels().largest(correlation, size);
  if (!(peak > correlation[0])) {
    return {0, 0};
  }
  const int index = static_cast<int>(std::find(correlation, correlation + size, peak) - correlation);
  const int row = index / width;
  const int column = index % width;
  return {column > width / 2 ? column - width : column, row > height / 2 ? row - height : row};
}

PhaseRegistration::PhaseRegistration(int width_, int height_, SrFloatFft2d& fft_, int gaussRadius_)
    : fine(width_, height_),
      width(width_),
      height(height_),
      numPixels(checkedArea(height_, width_)),
      numBins(checkedArea(height_, width_ / 2 + 1)),
      fft(fft_),
      gaussRadius(gaussRadius_),
      gaussSpectrum(new float[static_cast<std::size_t>(numBins)][2]()),
      product(new float[static_cast<std::size_t>(numBins)][2]()),
      correlation(makeAlignedFloats(static_cast<std::size_t>(numPixels))),
      refBlurred(makeAlignedFloats(static_cast<std::size_t>(numPixels))),
      frameBlurred(makeAlignedFloats(static_cast<std::size_t>(numPixels))) {
  makeGauss(std::min(gaussRadius, (std::min(width, height) - 1) / 2));
}

void PhaseRegistration::setGaussRadius(int radius) {
  makeGauss(radius);
  gaussRadius = radius;
}

void PhaseRegistration::makeGauss(int radius) {
  const auto r = static_cast<float>(radius);
  const float sigma = std::sqrt(3.0f * r * r / 25.0f);
  // A radius that does not fit is refused below before a tap is written.
  auto taps = std::make_unique<float[]>(static_cast<std::size_t>(std::clamp(radius, 0, width)) + 1);
  fft.gaussFft(radius, sigma, gaussSpectrum.get(), taps.get());
  gaussTaps = std::move(taps);
  usedRadius = radius;
}

void PhaseRegistration::registerFrames(int count, int refIndex, float** frames, const Spectrum* spectra, char** masks,
                                       cv::Point_<float>* shifts) {
  refSpectrum = spectra[refIndex];
  blur(frames[refIndex], refSpectrum, refBlurred.get());
  initialize(masks, count);
  for (int i = 0; i < count; ++i) {
    if (i == refIndex) {
      shifts[i] = {0, 0};
      std::fill_n(masks[i], numPixels, char{1});
      continue;
    }
    frameSpectrum = spectra[i];
    const cv::Point_<int> coarse = phaseCorrelation();
    blur(frames[i], frameSpectrum, frameBlurred.get());
    shifts[i] = opticalFlow(coarse, masks[i]);
  }
}

void PhaseRegistration::initialize(char** masks, int count) {
  for (int i = 0; i < count; ++i) {
    std::fill_n(masks[i], numPixels, char{0});
  }
  fine.setReference(refBlurred.get());
}

// Multiplication by the conjugate: the Gaussian's spectrum is real but for rounding.
void PhaseRegistration::blur(const float* image, Spectrum spectrum, float* blurred) {
  spectrumKernels().multiplyByConjugate(*spectrum, *gaussSpectrum.get(), numBins, *product.get());
  fft.backward(product.get(), blurred);
  fft.repairGaussBlur(image, blurred, usedRadius, gaussTaps.get());
}

cv::Point_<int> PhaseRegistration::phaseCorrelation() {
  if (refSpectrum == nullptr || frameSpectrum == nullptr) {
    return {0, 0};
  }
  spectrumKernels().crossPower(*refSpectrum, *frameSpectrum, numBins, *product.get());
  fft.backward(product.get(), correlation.get());
  return correlationPeak(correlation.get(), width, height);
}

cv::Point_<float> PhaseRegistration::opticalFlow(cv::Point_<int> coarse, char* mask) {
  return fine.step(refBlurred.get(), frameBlurred.get(), coarse, mask);
}

}  // namespace movra::vision::detail
