#include "vision/superresolution/reference/SuperResolution.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "movra/Exception.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/engine/BurstJudgement.h"
#include "vision/superresolution/detail/engine/ImageRepair.h"
#include "vision/superresolution/detail/engine/ParameterChecks.h"
#include "vision/superresolution/reference/NucConversion.h"
#include "vision/superresolution/reference/Points.h"
#include "vision/superresolution/reference/SixteenBits.h"

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

}  // namespace

template <class T>
SuperResolution::Slots<T>::Slots(int count, int size)
    : memory(new T[static_cast<std::size_t>(detail::checkedArea(count, size))]()) {
  for (int i = 0; i < count; ++i) {
    pointers.push_back(memory.get() + static_cast<std::ptrdiff_t>(i) * size);
  }
}

SuperResolution::SuperResolution(int width_, int height_, int numFrames_, float factor_)
    : width(width_),
      height(height_),
      inputSize(detail::checkedArea(height_, width_)),
      outputWidth(detail::scaledSize(width_, factor_)),
      outputHeight(detail::scaledSize(height_, factor_)),
      outputSize(detail::checkedArea(outputHeight, outputWidth)),
      spectrumSize(detail::checkedArea(height_, width_ / 2 + 1)),
      numFrames(detail::checkedSize(numFrames_)),
      factor(factor_),
      referenceIndex(0),
      minStructureThreshold(2.0f),
      registration(width_, height_, factor_, gaussRadius),
      minimization(width_, height_, numFrames_, factor_),
      badPixelHandling(static_cast<unsigned>(numFrames)),
      frames(numFrames, inputSize),
      spectra(numFrames, spectrumSize),
      workingFrames(numFrames, inputSize),
      outputImage(new float[static_cast<std::size_t>(outputSize)]()),
      shifts(static_cast<std::size_t>(numFrames)),
      masks(numFrames, inputSize),
      frameCount(0),
      quality(cv::Mat::zeros(qualitySize, qualitySize, CV_32F)) {
  setReferenceIndex(0);
}

SuperResolution::~SuperResolution() = default;

void SuperResolution::setReferenceIndex(int index) {
  detail::checkReferenceIndex(index, numFrames);
  referenceIndex = index;
}

void SuperResolution::setRegError(float error) {
  detail::checkRegError(error);
  registration.setRegError(error);
}

void SuperResolution::setPsfSigma(float sigma) {
  detail::checkPsfSigma(sigma);
  minimization.setPsfSigma(sigma);
}

void SuperResolution::setWeightTV(float weight) {
  detail::checkWeightTV(weight);
  minimization.setWeightTV(weight);
}

void SuperResolution::setRelativeResidue(float residue) {
  detail::checkRelativeResidue(residue);
  minimization.setRelRes(residue);
}

void SuperResolution::setMaxCGIters(int iterations) {
  detail::checkMaxCGIters(iterations);
  minimization.setMaxIter(iterations);
}

void SuperResolution::clearFrames() {
  frameCount = 0;
  registration.clearShifts();
  badPixelHandling.clearDefectMaps();
}

template <class T>
int SuperResolution::loadFrame(const T* frame) {
  requirePointer(frame, "The frame's data pointer is null");
  if (frameCount >= numFrames) {
    std::rotate(frames.pointers.begin(), frames.pointers.begin() + 1, frames.pointers.end());
    std::rotate(spectra.pointers.begin(), spectra.pointers.begin() + 1, spectra.pointers.end());
  } else {
    ++frameCount;
  }
  float* newest = frames.pointers[static_cast<std::size_t>(frameCount - 1)];
  copyValues(frame, inputSize, newest);

  // Frames, spectra and defect maps describe the same frames, also when this one is rejected.
  cv::Mat_<float> image(height, width, newest);
  int result = 0;
  try {
    result = badPixelHandling.detectAndReplaceBadPixel(image);
  } catch (...) {
    transformNewest();
    throw;
  }
  transformNewest();
  const Bin* spectrum = spectra.pointers[static_cast<std::size_t>(frameCount - 1)];
  if (std::any_of(spectrum, spectrum + spectrumSize,
                  [](const Bin& bin) { return bin[0] > FLT_MAX || bin[1] > FLT_MAX; })) {
    MOVRA_THROW("FFT resulted in infinite values. No processing possible");
  }
  return std::min(result, 0);
}

void SuperResolution::transformNewest() {
  const auto newest = static_cast<std::size_t>(frameCount - 1);
  registration.getFft().forward(frames.pointers[newest], spectra.pointers[newest]);
}

template <class T>
float SuperResolution::computeSR(T* out) {
  // Of the first engine in the process that comes here; later ones with another factor use it too.
  static const int limit = detail::coverageLimit(factor);

  requirePointer(out, "The result's data pointer is null");
  const int reference = std::max(frameCount - referenceIndex - 1, 0);
  if (registration.doRegistration(frameCount, reference, frames.pointers.data(), spectra.pointers.data(), shifts.data(),
                                  masks.pointers.data(), workingFrames.pointers.data()) < 0) {
    return registrationFailed;
  }
  std::vector<cv::Point_<float>> completeShifts;
  for (const PointF& shift : registration.getCompleteShifts()) {
    completeShifts.push_back(detail::toCvPoint(shift));
  }
  const detail::Verdict verdict =
      detail::judgeRegistration(frameCount, completeShifts, masks.pointers.data(), height, width);

  const int iterations = minimization.minimize(frameCount, reference, workingFrames.pointers.data(), shifts.data(),
                                               masks.pointers.data(), outputImage.get());
  if (iterations < 0) {
    return static_cast<float>(iterations);
  }
  detail::repairImage(badPixelHandling, cv::Mat_<float>(outputHeight, outputWidth, outputImage.get()), completeShifts,
                      frames.pointers, cv::Size(width, height));
  saveFrame(out);

  switch (verdict) {
    case detail::Verdict::displacementTooLarge:
      return displacementTooLarge;
    case detail::Verdict::tooManyMaskedPixels:
      return tooManyMaskedPixels;
    case detail::Verdict::good:
      break;
  }
  return detail::srFactor(frameCount, masks.pointers.data(), inputSize, limit);
}

template <class T>
void SuperResolution::saveFrame(T* out) const {
  requirePointer(out, "The result's data pointer is null");
  copyValues(outputImage.get(), outputSize, out);
}

void SuperResolution::setNucToRad(const cv::Mat_<short>& nucLow, const cv::Mat_<float>& radLow,
                                  const cv::Mat_<short>& nucHigh, const cv::Mat_<float>& radHigh) {
  const cv::Size size = nucLow.size();
  if (radLow.size() != size || nucHigh.size() != size || radHigh.size() != size) {
    MOVRA_THROW("The calibration images differ in size");
  }
  cv::Mat_<float> slope;
  cv::Mat_<float> offset;
  detail::twoPointCalibration(nucLow, radLow, nucHigh, radHigh, slope, offset);
  detail::repairOutliers(slope);
  detail::repairOutliers(offset);
  nucSlope = slope;
  nucOffset = offset;
}

void SuperResolution::NucToRad(const cv::Mat_<short>& nuc) {
  if (nucSlope.empty() || nucSlope.size() != nuc.size()) {
    MOVRA_THROW("NucToRad() not initialized");
  }
  const cv::Mat_<float> slope = nucSlope;
  const cv::Mat_<float> offset = nucOffset;
  radiometricFrame.create(nuc.size(), CV_32F);
  cv::Mat_<float> radiometric = radiometricFrame;
  for (int y = 0; y < nuc.rows; ++y) {
    for (int x = 0; x < nuc.cols; ++x) {
      radiometric(y, x) = static_cast<float>(nuc(y, x)) * slope(y, x) + offset(y, x);
    }
  }
  detail::repairOutliers(radiometric);
}

float SuperResolution::processFrame2(const short* nuc, float* out) {
  if (nucOffset.cols != width || nucSlope.rows != height) {
    MOVRA_THROW("NucToRad() not initialized");
  }
  requirePointer(nuc, "The frame's data pointer is null");
  // The matrix is a view, which is only read.
  NucToRad(cv::Mat_<short>(height, width, const_cast<short*>(nuc)));
  addFrame(radiometricFrame.ptr<float>());
  return computeSR(out);
}

template <class T>
bool SuperResolution::checkImageStructureQuality(const cv::Mat_<T>& img) const {
  if (img.empty()) {
    return false;
  }
  double minimum = 0;
  double maximum = 0;
  cv::minMaxLoc(img, &minimum, &maximum);
  return maximum - minimum >= static_cast<double>(minStructureThreshold);
}

void SuperResolution::computeQuality_() {
  cv::Mat_<float> matrix = quality;
  matrix.setTo(0);
  for (int k = 0; k < frameCount; ++k) {
    const PointF& shift = shifts[static_cast<std::size_t>(k)];
    addBilinearly(matrix, 2 * shift.x + 1, 2 * shift.y + 1);
  }
  if (frameCount > 0) {
    std::for_each(matrix.begin(), matrix.end(), [this](float& value) { value /= static_cast<float>(frameCount); });
  }
}

void SuperResolution::getQuality(cv::Mat_<float>& q) const {
  quality.copyTo(q);
}

void SuperResolution::simpleCombine() {
  const int step = std::max(detail::truncateToInt(factor), 1);
  for (int row = 0; row < outputHeight; ++row) {
    for (int column = 0; column < outputWidth; ++column) {
      const int y = std::min(row / step, height - 1);
      const int x = std::min(column / step, width - 1);
      float sum = 0;
      for (int k = 0; k < frameCount; ++k) {
        sum += workingFrames.pointers[static_cast<std::size_t>(k)][static_cast<std::ptrdiff_t>(y) * width + x];
      }
      outputImage[static_cast<std::size_t>(row) * static_cast<std::size_t>(outputWidth) +
                  static_cast<std::size_t>(column)] = frameCount > 0 ? sum / static_cast<float>(frameCount) : 0.0f;
    }
  }
}

void SuperResolution::getMasks(std::vector<cv::Mat_<unsigned char>>& out) const {
  out.resize(masks.pointers.size());
  for (std::size_t k = 0; k < out.size(); ++k) {
    out[k].create(height, width);
    std::copy_n(reinterpret_cast<const unsigned char*>(masks.pointers[k]), inputSize, out[k].data);
  }
}

template MOVRA_SUPERRESOLUTION_API int SuperResolution::loadFrame(const float*);
template MOVRA_SUPERRESOLUTION_API int SuperResolution::loadFrame(const short*);
template MOVRA_SUPERRESOLUTION_API float SuperResolution::computeSR(float*);
template MOVRA_SUPERRESOLUTION_API float SuperResolution::computeSR(short*);
template MOVRA_SUPERRESOLUTION_API void SuperResolution::saveFrame(float*) const;
template MOVRA_SUPERRESOLUTION_API void SuperResolution::saveFrame(short*) const;
template MOVRA_SUPERRESOLUTION_API bool SuperResolution::checkImageStructureQuality(const cv::Mat_<float>&) const;
template MOVRA_SUPERRESOLUTION_API bool SuperResolution::checkImageStructureQuality(const cv::Mat_<short>&) const;

}  // namespace movra::vision
