#include "vision/superresolution/SrFloatRegistration1.h"

#include <algorithm>

#include "movra/Exception.h"
#include "vision/superresolution/SrFloatFft2d.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/registration/PhaseRegistration.h"
#include "vision/superresolution/detail/registration/WholePixelMove.h"

namespace movra::vision {

namespace {

constexpr int defaultGaussRadius = 5;
// Line number in the location text of "Too large displacement". A fixed number that callers know, not this file's line.
constexpr int sourceLine = 144;

}  // namespace

SrFloatRegistration1::SrFloatRegistration1(int width_, int height_, int numFrames_)
    : width(width_),
      height(height_),
      numPixels(detail::checkedArea(height_, width_)),
      numFrames(detail::checkedSize(numFrames_)),
      frameCount(0),
      numBins(detail::checkedArea(height_, width_ / 2 + 1)),
      fft(std::make_unique<SrFloatFft2d>(width, height)),
      phase(std::make_unique<detail::PhaseRegistration>(width, height, *fft, defaultGaussRadius)) {
  // Last, so that a frame without pixels is refused before it takes memory.
  spectrumMemory.reset(new float[static_cast<std::size_t>(detail::checkedArea(numFrames, numBins))][2]());
  for (int i = 0; i < numFrames; ++i) {
    spectra.push_back(spectrumMemory.get() + static_cast<std::ptrdiff_t>(i) * numBins);
  }
}

SrFloatRegistration1::~SrFloatRegistration1() = default;

float SrFloatRegistration1::getRegError() const {
  return phase->fine.regError;
}

void SrFloatRegistration1::setRegError(float maximumError) {
  phase->fine.regError = maximumError;
}

int SrFloatRegistration1::getGaussRadius() const {
  return phase->getGaussRadius();
}

void SrFloatRegistration1::setGaussRadius(int radius) {
  phase->setGaussRadius(radius);
}

int SrFloatRegistration1::getRegErrBlurRadius() const {
  return phase->fine.regErrBlurRadius;
}

void SrFloatRegistration1::setRegErrBlurRadius(int radius) {
  phase->fine.regErrBlurRadius = radius;
}

void SrFloatRegistration1::prepareFrame(float* frame) {
  if (numFrames == 0) {
    return;
  }
  if (frame == nullptr) {
    MOVRA_THROW("The frame's data pointer is null");
  }
  if (frameCount < numFrames) {
    ++frameCount;
  } else {
    std::rotate(spectra.begin(), spectra.begin() + 1, spectra.end());
  }
  fft->forward(frame, spectra[static_cast<std::size_t>(frameCount - 1)]);
}

void SrFloatRegistration1::clearFrames() {
  frameCount = 0;
}

bool SrFloatRegistration1::holds(int count, int refIndex) const {
  return 0 <= refIndex && refIndex < count && count <= frameCount;
}

int SrFloatRegistration1::doRegistration(int count, int refIndex, float** frames, cv::Point_<float>* shifts,
                                         char** masks, float** shiftedFrames) {
  if (!holds(count, refIndex)) {
    return noFrames;
  }
  registerFrames(count, refIndex, frames, shifts, masks);
  if (!detail::splitShifts(count, width, height, frames, shifts, shiftedFrames, lastShifts)) {
    detail::throwTooLargeDisplacement("SrFloatRegistration1", sourceLine);
  }
  return 0;
}

void SrFloatRegistration1::registerFrames(int count, int refIndex, float** frames, cv::Point_<float>* shifts,
                                          char** masks) {
  if (!holds(count, refIndex)) {
    return;
  }
  measuredShifts.resize(static_cast<std::size_t>(count));
  phase->registerFrames(count, refIndex, frames, spectra.data(), masks, measuredShifts.data());
  std::copy(measuredShifts.begin(), measuredShifts.end(), shifts);
}

void SrFloatRegistration1::initialize(char** masks, int count) {
  phase->initialize(masks, count);
}

cv::Point_<int> SrFloatRegistration1::phaseCorrelation() {
  return phase->phaseCorrelation();
}

cv::Point_<float> SrFloatRegistration1::opticalFlow(cv::Point_<int> coarse, char* mask) {
  return phase->opticalFlow(coarse, mask);
}

void SrFloatRegistration1::shiftFrame(float* src, cv::Point_<float>& shift, float* dst) {
  detail::moveByWholePixels(src, width, height, shift, dst);
}

}  // namespace movra::vision
