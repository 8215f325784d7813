// Definitions of BurstEngine, included by the sources that instantiate it.
#pragma once

#include <algorithm>

#include "movra/Exception.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/engine/BurstJudgement.h"
#include "vision/superresolution/detail/engine/ImageRepair.h"
#include "vision/superresolution/detail/engine/ParameterChecks.h"
#include "vision/superresolution/shared/BurstEngine.h"

namespace movra::vision {

template <class R, class M, class BadPixels, class Report>
BurstEngine<R, M, BadPixels, Report>::BurstEngine(int width_, int height_, int windowSize_, float factor_)
    : width(width_),
      height(height_),
      inputSize(detail::checkedArea(height_, width_)),
      outputWidth(detail::scaledSize(width_, factor_)),
      outputHeight(detail::scaledSize(height_, factor_)),
      outputSize(detail::checkedArea(outputHeight, outputWidth)),
      spectrumSize(detail::checkedArea(height_, width_ / 2 + 1)),
      windowSize(detail::checkedSize(windowSize_)),
      factor(factor_),
      referenceIndex(0),
      minStructureThreshold(2.0f),
      registration(width_, height_, windowSize_),
      minimization(width_, height_, windowSize_, factor_),
      badPixelHandling(static_cast<unsigned>(windowSize)),
      frames(makeSlots<float>(windowSize, inputSize)),
      registeredFrames(makeSlots<float>(windowSize, inputSize)),
      srImage(new float[static_cast<std::size_t>(outputSize)]()),
      shifts(static_cast<std::size_t>(windowSize)),
      masks(makeSlots<Mask>(windowSize, inputSize)),
      numFrames(0) {
  setReferenceIndex(0);
}

template <class R, class M, class BadPixels, class Report>
BurstEngine<R, M, BadPixels, Report>::~BurstEngine() = default;

template <class R, class M, class BadPixels, class Report>
template <class T>
typename BurstEngine<R, M, BadPixels, Report>::template Slots<T> BurstEngine<R, M, BadPixels, Report>::makeSlots(
    int count, int size) {
  Slots<T> slots;
  for (int i = 0; i < count; ++i) {
    slots.buffers.push_back(std::make_unique<T[]>(static_cast<std::size_t>(size)));
    slots.pointers.push_back(slots.buffers.back().get());
  }
  return slots;
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setReferenceIndex(int index) {
  detail::checkReferenceIndex(index, windowSize);
  referenceIndex = index;
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getRegError() const {
  return registration.getRegError();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setRegError(float error) {
  detail::checkRegError(error);
  registration.setRegError(error);
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getPsfSigma() const {
  return minimization.getPsfSigma();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setPsfSigma(float sigma) {
  detail::checkPsfSigma(sigma);
  minimization.setPsfSigma(sigma);
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getWeightTV() const {
  return minimization.getWeightTV();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setWeightTV(float weight) {
  detail::checkWeightTV(weight);
  minimization.setWeightTV(weight);
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getRelativeResidue() const {
  return minimization.getRelRes();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setRelativeResidue(float residue) {
  detail::checkRelativeResidue(residue);
  minimization.setRelRes(residue);
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::getMaxCGIters() const {
  return minimization.getMaxIter();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setMaxCGIters(int iterations) {
  detail::checkMaxCGIters(iterations);
  minimization.setMaxIter(iterations);
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::clearFrames() {
  numFrames = 0;
  registration.clearFrames();
  badPixelHandling.clearDefectMaps();
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::loadFrame(const float* data) {
  if (data == nullptr && inputSize > 0) {
    MOVRA_THROW("The frame's data pointer is null");
  }
  if (numFrames >= windowSize) {
    std::rotate(frames.pointers.begin(), frames.pointers.begin() + 1, frames.pointers.end());
  } else {
    ++numFrames;
  }
  float* frame = frames.pointers[static_cast<std::size_t>(numFrames - 1)];
  std::copy_n(data, inputSize, frame);

  // The three stores describe the same frames, also when this one is rejected.
  cv::Mat_<float> image(height, width, frame);
  int result = 0;
  try {
    result = badPixelHandling.detectAndReplaceBadPixel(image);
  } catch (...) {
    registration.prepareFrame(frame);
    throw;
  }
  registration.prepareFrame(frame);
  return std::min(result, 0);
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::addFrame(const cv::Mat_<float>& frame) {
  const std::ptrdiff_t available = (frame.dataend - frame.data) / static_cast<std::ptrdiff_t>(sizeof(float));
  if (available < inputSize) {
    MOVRA_THROW("The frame has fewer pixels than the engine was made for");
  }
  return loadFrame(frame.template ptr<float>());
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::computeSR(cv::Mat_<float>& out) {
  out.create(outputHeight, outputWidth);
  return computeSR(out.template ptr<float>());
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::computeSR(float* out) {
  Report report;
  // Of the first engine of this kind in the process; later ones with another factor use it too.
  static const int fac2 = detail::coverageLimit(factor);

  const int referenceSlot = std::max(numFrames - referenceIndex - 1, 0);
  report.start();
  if (registration.doRegistration(numFrames, referenceSlot, frames.pointers.data(), shifts.data(),
                                  masks.pointers.data(), registeredFrames.pointers.data()) < 0) {
    return registrationFailed;
  }
  report.stage(" registration:         ");

  const std::vector<cv::Point_<float>> completeShifts = registration.getCompleteShifts();
  report.start();
  const detail::Verdict verdict =
      detail::judgeRegistration(numFrames, completeShifts, masks.pointers.data(), height, width);
  report.stage(" large_displacement:   ");

  report.start();
  const int iterations = minimization.minimize(numFrames, referenceSlot, registeredFrames.pointers.data(),
                                               shifts.data(), masks.pointers.data(), srImage.get());
  report.stage(" minimization:         ");
  if (iterations < 0) {
    return static_cast<float>(iterations);
  }
  detail::repairImage(badPixelHandling, cv::Mat_<float>(outputHeight, outputWidth, srImage.get()), completeShifts,
                      frames.pointers, cv::Size(width, height));

  report.start();
  saveFrame(out);
  const float coverage = detail::srFactor(numFrames, masks.pointers.data(), inputSize, fac2);
  report.stage(" save+srfactor calc:   ");
  report.close();
  switch (verdict) {
    case detail::Verdict::displacementTooLarge:
      return displacementTooLarge;
    case detail::Verdict::tooManyMaskedPixels:
      return tooManyMaskedPixels;
    case detail::Verdict::good:
      break;
  }
  return coverage;
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::saveFrame(float* out) const {
  std::copy_n(srImage.get(), outputSize, out);
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::getCompleteShifts(std::vector<cv::Point_<float>>& out) const {
  out = registration.getCompleteShifts();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::getMasks(std::vector<MaskImage>& out) const {
  out.resize(static_cast<std::size_t>(windowSize));
  for (std::size_t i = 0; i < out.size(); ++i) {
    out[i].create(height, width);
    std::copy_n(reinterpret_cast<const unsigned char*>(masks.pointers[i]), inputSize, out[i].data);
  }
}

}  // namespace movra::vision
