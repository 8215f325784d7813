#include "vision/superresolution/reference/SuperResolution.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "movra/Exception.h"
#include "vision/superresolution/SuperResolutionBadPixelHandling.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/engine/BurstJudgement.h"
#include "vision/superresolution/detail/engine/FrameWindow.h"
#include "vision/superresolution/detail/engine/ImageRepair.h"
#include "vision/superresolution/detail/engine/MaskImages.h"
#include "vision/superresolution/detail/engine/ParameterChecks.h"
#include "vision/superresolution/reference/NucConversion.h"
#include "vision/superresolution/reference/Points.h"
#include "vision/superresolution/reference/SixteenBits.h"
#include "vision/superresolution/reference/SuperResolutionMinimization.h"
#include "vision/superresolution/reference/SuperResolutionRegistration.h"

namespace movra::vision {

namespace {

constexpr int gaussRadius = 5;
constexpr int qualitySize = 3;

void requirePointer(const void* pointer, const char* message) {
  if (pointer == nullptr) {
    MOVRA_THROW(message);
  }
}

void copyValues(const float* from, int count, float* to) {
  std::copy_n(from, count, to);  // bits as they are: a frame holds flag values
}

void copyValues(const short* from, int count, float* to) {
  std::transform(from, from + count, to, [](short value) { return static_cast<float>(value); });
}

void copyValues(const float* from, int count, short* to) {
  std::transform(from, from + count, to, detail::lowSixteenBits);
}

// Adds a weight of 1 around (y, x), split between the four elements there; those outside the matrix are left out.
void addBilinearly(cv::Mat_<float>& matrix, float x, float y) {
  const bool near = -1.0f <= x && x < qualitySize && -1.0f <= y && y < qualitySize;
  if (!near) {
    return;
  }
  const int ix = static_cast<int>(std::floor(x));
  const int iy = static_cast<int>(std::floor(y));
  const float a = x - static_cast<float>(ix);
  const float b = y - static_cast<float>(iy);
  const auto add = [&](int row, int column, float weight) {
    if (row >= 0 && row < matrix.rows && column >= 0 && column < matrix.cols) {
      matrix(row, column) += weight;
    }
  };
  add(iy, ix, (1 - a) * (1 - b));
  add(iy, ix + 1, a * (1 - b));
  add(iy + 1, ix + 1, a * b);
  add(iy + 1, ix, (1 - a) * b);
}

// Marks the reference engine's results of one type.
template <class T>
struct ResultOf {};

}  // namespace

namespace detail {

/// What the reference engine consists of.
struct ReferenceEngineParts {
  using Bin = float[2];

  ReferenceEngineParts(int width_, int height_, int numFrames_, float factor_)
      : width(width_),
        height(height_),
        inputSize(checkedArea(height_, width_)),
        outputWidth(scaledSize(width_, factor_)),
        outputHeight(scaledSize(height_, factor_)),
        outputSize(checkedArea(outputHeight, outputWidth)),
        spectrumSize(checkedArea(height_, width_ / 2 + 1)),
        numFrames(checkedSize(numFrames_)),
        factor(factor_),
        registration(width_, height_, factor_, gaussRadius),
        minimization(width_, height_, numFrames_, factor_),
        badPixelHandling(static_cast<unsigned>(numFrames)),
        window(numFrames, inputSize),
        spectra(numFrames, spectrumSize),
        workingFrames(numFrames, inputSize),
        outputImage(new float[static_cast<std::size_t>(outputSize)]()),
        shifts(static_cast<std::size_t>(numFrames)),
        masks(numFrames, inputSize),
        quality(cv::Mat::zeros(qualitySize, qualitySize, CV_32F)) {}

  int width;
  int height;
  int inputSize;
  int outputWidth;
  int outputHeight;
  int outputSize;
  int spectrumSize;
  int numFrames;
  float factor;
  int referenceIndex = 0;
  SuperResolutionRegistration registration;
  SuperResolutionMinimization minimization;
  SuperResolutionBadPixelHandling badPixelHandling;
  FrameWindow window;
  Slots<Bin> spectra;  // of the frames
  Slots<float> workingFrames;
  std::unique_ptr<float[]> outputImage;
  std::vector<PointF> shifts;  // fractional
  Slots<char> masks;
  cv::Mat nucSlope;
  cv::Mat nucOffset;
  cv::Mat radiometricFrame;
  cv::Mat quality;
};

}  // namespace detail

SuperResolution::SuperResolution(int width, int height, int numFrames, float factor)
    : parts(std::make_unique<detail::ReferenceEngineParts>(width, height, numFrames, factor)) {
  setReferenceIndex(0);
}

SuperResolution::~SuperResolution() = default;

int SuperResolution::getInputSize() const {
  return parts->inputSize;
}

int SuperResolution::getOutputSize() const {
  return parts->outputSize;
}

int SuperResolution::getWindowSize() const {
  return parts->numFrames;
}

int SuperResolution::getReferenceIndex() const {
  return parts->referenceIndex;
}

void SuperResolution::setReferenceIndex(int index) {
  detail::checkReferenceIndex(index, parts->numFrames);
  parts->referenceIndex = index;
}

float SuperResolution::getRegError() const {
  return parts->registration.getRegError();
}

void SuperResolution::setRegError(float error) {
  detail::checkRegError(error);
  parts->registration.setRegError(error);
}

float SuperResolution::getPsfSigma() const {
  return parts->minimization.getPsfSigma();
}

void SuperResolution::setPsfSigma(float sigma) {
  detail::checkPsfSigma(sigma);
  parts->minimization.setPsfSigma(sigma);
}

float SuperResolution::getWeightTV() const {
  return parts->minimization.getWeightTV();
}

void SuperResolution::setWeightTV(float weight) {
  detail::checkWeightTV(weight);
  parts->minimization.setWeightTV(weight);
}

float SuperResolution::getRelativeResidue() const {
  return parts->minimization.getRelRes();
}

void SuperResolution::setRelativeResidue(float residue) {
  detail::checkRelativeResidue(residue);
  parts->minimization.setRelRes(residue);
}

int SuperResolution::getMaxCGIters() const {
  return parts->minimization.getMaxIter();
}

void SuperResolution::setMaxCGIters(int iterations) {
  detail::checkMaxCGIters(iterations);
  parts->minimization.setMaxIter(iterations);
}

void SuperResolution::setDataIsNUC(bool isNUC) {
  parts->badPixelHandling.setDataIsNUC(isNUC);
}

void SuperResolution::clearFrames() {
  parts->window.clear();
  parts->badPixelHandling.clearDefectMaps();
}

template <class T>
int SuperResolution::loadFrame(const T* frame) {
  requirePointer(frame, "The frame's data pointer is null");
  detail::ReferenceEngineParts& p = *parts;
  const detail::ReferenceEngineParts::Bin* spectrum = nullptr;
  const int result = p.window.take([&](float* newest) { copyValues(frame, p.inputSize, newest); },
                                   [&](float* newest) {
                                     cv::Mat_<float> image(p.height, p.width, newest);
                                     return p.badPixelHandling.detectAndReplaceBadPixel(image);
                                   },
                                   [&](float* newest, bool rotated) {
                                     if (rotated) {
                                       p.spectra.rotate();
                                     }
                                     auto* const bins = p.spectra[p.window.count() - 1];
                                     p.registration.getFft().forward(newest, bins);
                                     spectrum = bins;
                                   });
  if (std::any_of(spectrum, spectrum + p.spectrumSize,
                  [](const auto& bin) { return bin[0] > FLT_MAX || bin[1] > FLT_MAX; })) {
    MOVRA_THROW("FFT resulted in infinite values. No processing possible");
  }
  return result;
}

template <class T>
float SuperResolution::computeSR(T* out) {
  const int coverageLimit = detail::coverageLimitOfFirst<ResultOf<T>>(parts->factor);
  requirePointer(out, "The result's data pointer is null");
  detail::ReferenceEngineParts& p = *parts;
  const int count = p.window.count();
  const int reference = p.window.slotOf(p.referenceIndex);
  if (p.registration.doRegistration(count, reference, p.window.frames(), p.spectra.pointers(), p.shifts.data(),
                                    p.masks.pointers(), p.workingFrames.pointers()) < 0) {
    return registrationFailed;
  }
  std::vector<cv::Point_<float>> completeShifts;
  for (const PointF& shift : p.registration.getCompleteShifts()) {
    completeShifts.push_back(detail::toCvPoint(shift));
  }
  const detail::Verdict verdict =
      detail::judgeRegistration(count, completeShifts, p.masks.pointers(), p.height, p.width);

  const int iterations = p.minimization.minimize(count, reference, p.workingFrames.pointers(), p.shifts.data(),
                                                 p.masks.pointers(), p.outputImage.get());
  if (iterations < 0) {
    return static_cast<float>(iterations);
  }
  detail::repairImage(p.badPixelHandling, cv::Mat_<float>(p.outputHeight, p.outputWidth, p.outputImage.get()),
                      completeShifts, p.window.all(), cv::Size(p.width, p.height));
  saveFrame(out);

  switch (verdict) {
    case detail::Verdict::displacementTooLarge:
      return displacementTooLarge;
    case detail::Verdict::tooManyMaskedPixels:
      return tooManyMaskedPixels;
    case detail::Verdict::good:
      break;
  }
  return detail::srFactor(count, p.masks.pointers(), p.inputSize, coverageLimit);
}

template <class T>
void SuperResolution::saveFrame(T* out) const {
  requirePointer(out, "The result's data pointer is null");
  copyValues(parts->outputImage.get(), parts->outputSize, out);
}

void SuperResolution::setNucToRad(const cv::Mat_<short>& nucLow, const cv::Mat_<float>& radLow,
                                  const cv::Mat_<short>& nucHigh, const cv::Mat_<float>& radHigh) {
  for (const cv::Size& size : {radLow.size(), nucHigh.size(), radHigh.size()}) {
    if (size.width < nucLow.cols || size.height < nucLow.rows) {
      MOVRA_THROW("A calibration image is smaller than the first");
    }
  }
  cv::Mat_<float> slope;
  cv::Mat_<float> offset;
  detail::twoPointCalibration(nucLow, radLow, nucHigh, radHigh, slope, offset);
  detail::repairOutliers(slope);
  detail::repairOutliers(offset);
  parts->nucSlope = slope;
  parts->nucOffset = offset;
}

void SuperResolution::NucToRad(const cv::Mat_<short>& nuc) {
  if (parts->nucSlope.cols < nuc.cols || parts->nucSlope.rows < nuc.rows) {
    MOVRA_THROW("NucToRad() not initialized");
  }
  const cv::Mat_<float> slope = parts->nucSlope;
  const cv::Mat_<float> offset = parts->nucOffset;
  parts->radiometricFrame.create(nuc.size(), CV_32F);
  cv::Mat_<float> radiometric = parts->radiometricFrame;
  for (int y = 0; y < nuc.rows; ++y) {
    for (int x = 0; x < nuc.cols; ++x) {
      radiometric(y, x) = static_cast<float>(nuc(y, x)) * slope(y, x) + offset(y, x);
    }
  }
  detail::repairOutliers(radiometric);
}

float SuperResolution::processFrame2(const short* nuc, float* out) {
  if (parts->nucOffset.cols != parts->width || parts->nucSlope.rows != parts->height) {
    MOVRA_THROW("NucToRad() not initialized");
  }
  requirePointer(nuc, "The frame's data pointer is null");
  // The matrix is a view, which is only read.
  NucToRad(cv::Mat_<short>(parts->height, parts->width, const_cast<short*>(nuc)));
  addFrame(parts->radiometricFrame.ptr<float>());
  return computeSR(out);
}

const cv::Mat& SuperResolution::getRadiometricFrame() const {
  return parts->radiometricFrame;
}

void SuperResolution::computeQuality_() {
  cv::Mat_<float> matrix = parts->quality;
  matrix.setTo(0);
  for (int k = 0; k < parts->window.count(); ++k) {
    const PointF& shift = parts->shifts[static_cast<std::size_t>(k)];
    addBilinearly(matrix, 2 * shift.x + 1, 2 * shift.y + 1);
  }
  const int count = parts->window.count();
  if (count > 0) {
    std::for_each(matrix.begin(), matrix.end(), [=](float& value) { value /= static_cast<float>(count); });
  }
}

void SuperResolution::getQuality(cv::Mat_<float>& q) const {
  parts->quality.copyTo(q);
}

void SuperResolution::simpleCombine() {
  constexpr int step = 2;  // whatever the factor
  const detail::ReferenceEngineParts& p = *parts;
  const int count = p.window.count();
  float* out = p.outputImage.get();
  for (int row = 0; row < p.outputHeight; ++row) {
    for (int column = 0; column < p.outputWidth; ++column) {
      const int y = std::min(row / step, p.height - 1);
      const int x = std::min(column / step, p.width - 1);
      float sum = 0;
      for (int k = 0; k < count; ++k) {
        sum += p.workingFrames[k][static_cast<std::ptrdiff_t>(y) * p.width + x];
      }
      *out++ = count > 0 ? sum / static_cast<float>(count) : 0.0f;
    }
  }
}

void SuperResolution::getCompleteShifts(std::vector<PointF>& out) const {
  out = parts->registration.getCompleteShifts();
}

void SuperResolution::getMasks(std::vector<cv::Mat_<unsigned char>>& out) const {
  detail::copyMasks(parts->masks.all(), parts->width, parts->height, out);
}

template MOVRA_SUPERRESOLUTION_API int SuperResolution::loadFrame(const float*);
template MOVRA_SUPERRESOLUTION_API int SuperResolution::loadFrame(const short*);
template MOVRA_SUPERRESOLUTION_API float SuperResolution::computeSR(float*);
template MOVRA_SUPERRESOLUTION_API float SuperResolution::computeSR(short*);
template MOVRA_SUPERRESOLUTION_API void SuperResolution::saveFrame(float*) const;
template MOVRA_SUPERRESOLUTION_API void SuperResolution::saveFrame(short*) const;

}  // namespace movra::vision
