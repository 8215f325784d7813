#include "vision/superresolution/shared/BurstEngine.h"

#include <algorithm>

#include "movra/Exception.h"
#include "vision/superresolution/SrFloatMinimization.h"
#include "vision/superresolution/SrFloatNeonMinimization.h"
#include "vision/superresolution/SrFloatNeonRegistration.h"
#include "vision/superresolution/SrFloatRegistration1.h"
#include "vision/superresolution/SrFloatRegistration2.h"
#include "vision/superresolution/SuperResolutionBadPixelHandling.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/engine/BurstJudgement.h"
#include "vision/superresolution/detail/engine/ConsoleReport.h"
#include "vision/superresolution/detail/engine/FrameWindow.h"
#include "vision/superresolution/detail/engine/ImageRepair.h"
#include "vision/superresolution/detail/engine/MaskImages.h"
#include "vision/superresolution/detail/engine/NoReport.h"
#include "vision/superresolution/detail/engine/ParameterChecks.h"
#include "vision/superresolution/detail/engine/StageReport.h"
#include "vision/superresolution/shared/NoBadPixelHandling.h"

namespace movra::vision {

namespace detail {

/// What an engine consists of.
template <class Registration, class Minimization, class BadPixels>
struct EngineParts {
  using Mask = typename Minimization::Mask;

  EngineParts(int width_, int height_, int windowSize_, float factor_)
      : width(width_),
        height(height_),
        inputSize(checkedArea(height_, width_)),
        outputWidth(scaledSize(width_, factor_)),
        outputHeight(scaledSize(height_, factor_)),
        outputSize(checkedArea(outputHeight, outputWidth)),
        windowSize(checkedSize(windowSize_)),
        factor(factor_),
        registration(width_, height_, windowSize_),
        minimization(width_, height_, windowSize_, factor_),
        badPixelHandling(static_cast<unsigned>(windowSize)),
        window(windowSize, inputSize),
        registeredFrames(windowSize, inputSize),
        srImage(new float[static_cast<std::size_t>(outputSize)]()),
        shifts(static_cast<std::size_t>(windowSize)),
        masks(windowSize, inputSize) {}

  int width;
  int height;
  int inputSize;
  int outputWidth;
  int outputHeight;
  int outputSize;
  int windowSize;
  float factor;
  int referenceIndex = 0;
  float minStructureThreshold = 2.0f;
  Registration registration;
  Minimization minimization;
  BadPixels badPixelHandling;
  FrameWindow window;
  Slots<float> registeredFrames;  // the frames on the reference's grid
  std::unique_ptr<float[]> srImage;
  std::vector<cv::Point_<float>> shifts;  // fractional
  Slots<Mask> masks;
};

}  // namespace detail

template <class R, class M, class BadPixels, class Report>
BurstEngine<R, M, BadPixels, Report>::BurstEngine(int width, int height, int windowSize, float factor)
    : parts(std::make_unique<Parts>(width, height, windowSize, factor)) {
  setReferenceIndex(0);
}

template <class R, class M, class BadPixels, class Report>
BurstEngine<R, M, BadPixels, Report>::~BurstEngine() = default;

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::getInputSize() const {
  return parts->inputSize;
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::getOutputSize() const {
  return parts->outputSize;
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::getWindowSize() const {
  return parts->windowSize;
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::getReferenceIndex() const {
  return parts->referenceIndex;
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setReferenceIndex(int index) {
  detail::checkReferenceIndex(index, parts->windowSize);
  parts->referenceIndex = index;
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getRegError() const {
  return parts->registration.getRegError();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setRegError(float error) {
  detail::checkRegError(error);
  parts->registration.setRegError(error);
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getPsfSigma() const {
  return parts->minimization.getPsfSigma();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setPsfSigma(float sigma) {
  detail::checkPsfSigma(sigma);
  parts->minimization.setPsfSigma(sigma);
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getWeightTV() const {
  return parts->minimization.getWeightTV();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setWeightTV(float weight) {
  detail::checkWeightTV(weight);
  parts->minimization.setWeightTV(weight);
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getRelativeResidue() const {
  return parts->minimization.getRelRes();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setRelativeResidue(float residue) {
  detail::checkRelativeResidue(residue);
  parts->minimization.setRelRes(residue);
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::getMaxCGIters() const {
  return parts->minimization.getMaxIter();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setMaxCGIters(int iterations) {
  detail::checkMaxCGIters(iterations);
  parts->minimization.setMaxIter(iterations);
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::getMinStructureThreshold() const {
  return parts->minStructureThreshold;
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::setMinStructureThreshold(float threshold) {
  parts->minStructureThreshold = threshold;
}

template <class R, class M, class BadPixels, class Report>
BadPixels& BurstEngine<R, M, BadPixels, Report>::badPixels() {
  return parts->badPixelHandling;
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::clearFrames() {
  parts->window.clear();
  parts->registration.clearFrames();
  parts->badPixelHandling.clearDefectMaps();
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::loadFrame(const float* data) {
  if (data == nullptr && parts->inputSize > 0) {
    MOVRA_THROW("The frame's data pointer is null");
  }
  return parts->window.take([&](float* frame) { std::copy_n(data, parts->inputSize, frame); },
                            [&](float* frame) {
                              cv::Mat_<float> image(parts->height, parts->width, frame);
                              return parts->badPixelHandling.detectAndReplaceBadPixel(image);
                            },
                            [&](float* frame, bool) { parts->registration.prepareFrame(frame); });
}

template <class R, class M, class BadPixels, class Report>
int BurstEngine<R, M, BadPixels, Report>::addFrame(const cv::Mat_<float>& frame) {
  const std::ptrdiff_t available = (frame.dataend - frame.data) / static_cast<std::ptrdiff_t>(sizeof(float));
  if (available < parts->inputSize) {
    MOVRA_THROW("The frame has fewer pixels than the engine was made for");
  }
  return loadFrame(frame.template ptr<float>());
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::computeSR(cv::Mat_<float>& out) {
  out.create(parts->outputHeight, parts->outputWidth);
  if (out.isContinuous()) {
    return computeSR(out.template ptr<float>());
  }
  cv::Mat_<float> dense = out.clone();
  const float result = computeSR(dense.template ptr<float>());
  dense.copyTo(out);
  return result;
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::computeSR(float* out) {
  Report report;
  return computeSR(out, report);
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::registerFrames(Report& report) {
  Parts& p = *parts;
  const int frameCount = p.window.count();
  report.start();
  if (p.registration.doRegistration(frameCount, p.window.slotOf(p.referenceIndex), p.window.frames(), p.shifts.data(),
                                    p.masks.pointers(), p.registeredFrames.pointers()) < 0) {
    return registrationFailed;
  }
  report.stage(" registration:         ");

  report.start();
  const detail::Verdict verdict =
      detail::judgeRegistration(frameCount, p.registration.getCompleteShifts(), p.masks.pointers(), p.height, p.width);
  report.stage(" large_displacement:   ");
  switch (verdict) {
    case detail::Verdict::displacementTooLarge:
      return displacementTooLarge;
    case detail::Verdict::tooManyMaskedPixels:
      return tooManyMaskedPixels;
    case detail::Verdict::good:
      break;
  }
  return 0;
}

template <class R, class M, class BadPixels, class Report>
float BurstEngine<R, M, BadPixels, Report>::computeSR(float* out, Report& report) {
  const int coverageLimit = detail::coverageLimitOfFirst<BurstEngine>(parts->factor);
  const float verdict = registerFrames(report);
  if (verdict == registrationFailed) {
    return verdict;
  }
  Parts& p = *parts;
  const int frameCount = p.window.count();
  report.start();
  const int iterations =
      p.minimization.minimize(frameCount, p.window.slotOf(p.referenceIndex), p.registeredFrames.pointers(),
                              p.shifts.data(), p.masks.pointers(), p.srImage.get());
  report.stage(" minimization:         ");
  report.iterations(iterations);
  if (iterations < 0) {
    return static_cast<float>(iterations);
  }
  // The list can be longer: its end is from earlier registrations.
  const cv::Point_<float>* const firstShift = p.registration.getCompleteShifts().data();
  const std::vector<cv::Point_<float>> completeShifts(firstShift, firstShift + frameCount);
  detail::repairImage(p.badPixelHandling, cv::Mat_<float>(p.outputHeight, p.outputWidth, p.srImage.get()),
                      completeShifts, p.window.all(), cv::Size(p.width, p.height));

  report.start();
  saveFrame(out);
  const float srFactor = detail::srFactor(frameCount, p.masks.pointers(), p.inputSize, coverageLimit);
  report.stage(" save+srfactor calc:   ");
  report.close();
  return verdict < 0 ? verdict : srFactor;
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::saveFrame(float* out) const {
  if (out == nullptr && parts->outputSize > 0) {
    MOVRA_THROW("The result's data pointer is null");
  }
  std::copy_n(parts->srImage.get(), parts->outputSize, out);
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::getCompleteShifts(std::vector<cv::Point_<float>>& out) const {
  out = parts->registration.getCompleteShifts();
}

template <class R, class M, class BadPixels, class Report>
void BurstEngine<R, M, BadPixels, Report>::getMasks(std::vector<MaskImage>& out) const {
  detail::copyMasks(parts->masks.all(), parts->width, parts->height, out);
}

template class BurstEngine<SrFloatRegistration1, SrFloatMinimization, SuperResolutionBadPixelHandling, ConsoleReport>;
template class BurstEngine<SrFloatRegistration2, SrFloatMinimization, SuperResolutionBadPixelHandling, ConsoleReport>;
template class BurstEngine<SrFloatNeonRegistration, SrFloatNeonMinimization, NoBadPixelHandling, NoReport>;
template class BurstEngine<SrFloatRegistration1, SrFloatMinimization, SuperResolutionBadPixelHandling,
                           detail::StageReport>;
template class BurstEngine<SrFloatRegistration2, SrFloatMinimization, SuperResolutionBadPixelHandling,
                           detail::StageReport>;

}  // namespace movra::vision
