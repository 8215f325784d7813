#include "vision/superresolution/NoiseEstimate.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/base/BoxFilter.h"
#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/LocalMedian.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"
#include "vision/superresolution/detail/sensor/SensorKernels.h"

namespace movra::vision {

namespace {

using namespace detail;

constexpr double meanToDeviation = 1.2533;  // sqrt(pi / 2): of a normal distribution's absolute value
constexpr double cutAt = 2.5;               // deviations
constexpr double cutCorrection = 1.006;     // what the cut takes from the mean
constexpr double flatShare = 0.3;

// Squared gradient of the blurred image, averaged over 5 x 5 pixels: small where the scene is flat.
std::vector<float> unevenness(const float* image, int width, int height) {
  const auto w = static_cast<std::size_t>(width);
  const auto h = static_cast<std::size_t>(height);
  std::vector<float> blurred(w * h);
  std::vector<float> energy(w * h);
  BoxFilter box(width);
  box.apply(image, height, 2, blurred.data());
  box.apply(blurred.data(), height, 1, blurred.data());
  for (std::size_t y = 0; y < h; ++y) {
    const float* row = blurred.data() + y * w;
    sensorKernels().gradientEnergy(y > 0 ? row - w : row, row, y + 1 < h ? row + w : row, width, energy.data() + y * w);
  }
  box.apply(energy.data(), height, 2, energy.data());
  return energy;
}

// Mean of the values, each cut at `limit`.
double cutMean(const std::vector<float>& values, double limit) {
  const auto cut = static_cast<float>(std::min(limit, 3e38));
  double sum = 0;
  for (const float value : values) {
    sum += static_cast<double>(std::min(value, cut));
  }
  return sum / static_cast<double>(values.size());
}

double noiseOfWhole(const float* image, int width, int height) {
  const auto w = static_cast<std::size_t>(width);
  const std::vector<float> energy = unevenness(image, width, height);
  std::vector<float> inner;
  for (int y = 1; y + 1 < height; ++y) {
    const float* row = energy.data() + static_cast<std::size_t>(y) * w;
    inner.insert(inner.end(), row + 1, row + w - 1);
  }
  const float limit = orderStatistic(inner, static_cast<std::size_t>(flatShare * static_cast<double>(inner.size())));

  std::vector<float> differences(w);
  std::vector<float> flat;
  for (int y = 1; y + 1 < height; ++y) {
    const std::size_t at = static_cast<std::size_t>(y) * w;
    sensorKernels().planeFreeDifference(image + at - w, image + at, image + at + w, width, differences.data());
    for (std::size_t x = 1; x + 1 < w; ++x) {
      if (energy[at + x] <= limit) {
        flat.push_back(differences[x]);
      }
    }
  }
  double noise = cutMean(flat, HUGE_VAL) * meanToDeviation;
  for (int i = 0; i < 4; ++i) {
    noise = cutMean(flat, cutAt * noise) * meanToDeviation * cutCorrection;
  }
  return noise;
}

// Of the measured pixels, in two passes so that a large mean costs no precision.
double deviationOf(const float* image, std::size_t pixels) {
  double sum = 0;
  std::size_t count = 0;
  for (std::size_t i = 0; i < pixels; ++i) {
    if (isMeasured(image[i])) {
      sum += static_cast<double>(image[i]);
      ++count;
    }
  }
  if (count == 0) {
    return 0;
  }
  const double mean = sum / static_cast<double>(count);
  double squares = 0;
  for (std::size_t i = 0; i < pixels; ++i) {
    if (isMeasured(image[i])) {
      const double difference = static_cast<double>(image[i]) - mean;
      squares += difference * difference;
    }
  }
  return std::sqrt(squares / static_cast<double>(count));
}

}  // namespace

double NoiseEstimate::ofFrame(const float* frame, int width, int height) {
  requireFrames({&frame, 1, width, height});
  if (width < 3 || height < 3) {
    return 0;
  }
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  if (isWhole(frame, pixels)) {
    return noiseOfWhole(frame, width, height);
  }
  std::vector<float> filled(frame, frame + pixels);
  fillByLocalMedian(filled.data(), width, height, nullptr);
  return noiseOfWhole(filled.data(), width, height);
}

double NoiseEstimate::ofFrames(const FrameStack& frames) {
  requireFrames(frames);
  std::vector<double> noise;
  for (int k = 0; k < frames.count; ++k) {
    noise.push_back(ofFrame(frames.frames[k], frames.width, frames.height));
  }
  return medianOf(std::move(noise));
}

NoiseReport NoiseEstimate::ofResiduals(const FrameStack& frames, int reference, const FrameStack& residuals) {
  return ofResiduals(frames, reference, residuals, ofFrames(frames));
}

NoiseReport NoiseEstimate::ofResiduals(const FrameStack& frames, int reference, const FrameStack& residuals,
                                       double noise) {
  requireFrames(frames);
  requireFrames(residuals);
  requireReference(frames, reference);
  requireSameShape(frames, residuals);
  NoiseReport report;
  report.deviation = deviationOf(frames.frames[reference], frames.pixels());
  report.noise = noise;
  report.residual = robustDeviation(residuals);
  if (report.residual > 0) {
    const double weight = 5 * report.deviation / report.residual;
    report.weightTV = static_cast<float>(std::min(std::max(weight, double{smallestWeightTV}), double{largestWeightTV}));
  }
  return report;
}

}  // namespace movra::vision
