#include "vision/superresolution/OffsetCorrection.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "vision/superresolution/detail/sensor/CubicSampling.h"
#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/LinearSystem.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"

namespace movra::vision {

namespace {

using namespace detail;

constexpr std::size_t sampleLimit = std::size_t{1} << 13;  // their noise is far below that of the frames
constexpr std::size_t fewestSamples = 32;
constexpr double overlapForPlane = 0.4;
constexpr double smallestGain = 0.02;
constexpr int rounds = 6;

/// A pixel of the reference and the same scene point in a frame.
struct Sample {
  double x;           // place in the frame, -0.5 ... 0.5
  double y;           //
  double smooth;      // the reference around it, less the pivot; 0 where no gain is wanted
  double difference;  // frame less reference
};

struct Samples {
  std::vector<Sample> taken;
  std::size_t lookedAt = 0;
  double pivot = 0;
};

// Mean of the measured pixels of the 5 x 5 around an inner pixel.
double smoothAt(const float* image, int width, int height, int x, int y) {
  double sum = 0;
  int count = 0;
  for (int v = std::max(0, y - 2); v <= std::min(height - 1, y + 2); ++v) {
    for (int u = std::max(0, x - 2); u <= std::min(width - 1, x + 2); ++u) {
      const float& value =
          image[static_cast<std::size_t>(v) * static_cast<std::size_t>(width) + static_cast<std::size_t>(u)];
      if (isMeasured(value)) {
        sum += static_cast<double>(value);
        ++count;
      }
    }
  }
  return count > 0 ? sum / count : 0;
}

Samples samplesOf(const float* frame, const float* reference, int width, int height, const AffineMotion& motion,
                  bool wantsGain) {
  Samples samples;
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  int step = 1;
  while (pixels / static_cast<std::size_t>(step * step) > sampleLimit) {
    ++step;
  }
  for (int y = step / 2; y < height; y += step) {
    for (int x = step / 2; x < width; x += step) {
      ++samples.lookedAt;
      const float& there =
          reference[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
      const AffineMotion::Shift shift = motion.shiftAt(x, y, width, height);
      double here = 0;
      if (isMeasured(there) && sampleCubic(frame, width, height, x + shift.x, y + shift.y, here)) {
        samples.taken.push_back({(x + shift.x) / width - 0.5, (y + shift.y) / height - 0.5,
                                 wantsGain ? smoothAt(reference, width, height, x, y) : 0,
                                 here - static_cast<double>(there)});
      }
    }
  }
  for (const Sample& sample : samples.taken) {
    samples.pivot += sample.smooth / static_cast<double>(samples.taken.size());
  }
  for (Sample& sample : samples.taken) {
    sample.smooth -= samples.pivot;
  }
  return samples;
}

/// Terms of a fit without the gain: one number, or a plane.
enum class Terms : std::size_t { offset = 1, plane = 3 };

std::array<double, 4> rowOf(const Sample& sample, Terms terms, bool withGain) {
  if (terms == Terms::offset) {
    return {1, sample.smooth, 0, 0};
  }
  return {1, sample.x, sample.y, withGain ? sample.smooth : 0};
}

// Least squares with the weight 1 / max(1, |r| / 1.5 deviations), six times over.
bool fit(const std::vector<Sample>& samples, Terms terms, bool withGain, std::array<double, 4>& solution) {
  const std::size_t unknowns = static_cast<std::size_t>(terms) + (withGain ? 1 : 0);
  std::vector<double> weights(samples.size(), 1.0);
  std::vector<double> residuals(samples.size());
  std::vector<float> sizes(samples.size());
  for (int round = 0; round < rounds; ++round) {
    NormalEquations<4> equations(unknowns);
    for (std::size_t i = 0; i < samples.size(); ++i) {
      equations.add(rowOf(samples[i], terms, withGain), samples[i].difference, weights[i]);
    }
    if (!equations.solve(solution)) {
      return false;
    }
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const std::array<double, 4> row = rowOf(samples[i], terms, withGain);
      residuals[i] = samples[i].difference;
      for (std::size_t j = 0; j < unknowns; ++j) {
        residuals[i] -= row[j] * solution[j];
      }
      sizes[i] = static_cast<float>(std::min(std::abs(residuals[i]), 3e38));
    }
    const double deviation = deviationPerMad * static_cast<double>(medianOf(sizes)) + 1e-9;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      weights[i] = 1 / std::max(1.0, std::abs(residuals[i]) / (1.5 * deviation));
    }
  }
  return true;
}

FrameOffset offsetOf(const Samples& samples, bool wantsPlane, bool wantsGain) {
  FrameOffset result;
  const std::size_t taken = samples.taken.size();
  result.overlap = samples.lookedAt > 0 ? static_cast<double>(taken) / static_cast<double>(samples.lookedAt) : 0;
  if (taken < fewestSamples) {
    return result;
  }
  const Terms terms = wantsPlane && result.overlap >= overlapForPlane ? Terms::plane : Terms::offset;
  std::array<double, 4> solution{};
  bool solved = fit(samples.taken, terms, wantsGain, solution);
  const auto gainAt = static_cast<std::size_t>(terms);
  if (wantsGain && !(solved && std::abs(solution[gainAt]) > smallestGain && solution[gainAt] > -0.5)) {
    solved = fit(samples.taken, terms, false, solution);
  } else if (wantsGain) {
    result.gain = 1 + solution[gainAt];
    result.pivot = samples.pivot;
  }
  if (!solved) {
    return result;
  }
  result.offset = solution[0];
  if (terms == Terms::plane) {
    result.slopeX = solution[1];
    result.slopeY = solution[2];
  }
  result.outcome = terms == Terms::plane ? OffsetOutcome::plane
                   : wantsPlane          ? OffsetOutcome::smallOverlap
                                         : OffsetOutcome::median;
  return result;
}

FrameOffset offsetOfReference() {
  FrameOffset result;
  result.outcome = OffsetOutcome::reference;
  result.overlap = 1;
  return result;
}

}  // namespace

const char* toString(OffsetOutcome outcome) {
  switch (outcome) {
    case OffsetOutcome::reference:
      return "reference frame";
    case OffsetOutcome::median:
      return "one number";
    case OffsetOutcome::plane:
      return "plane";
    case OffsetOutcome::smallOverlap:
      return "one number, because the frames overlap too little for a plane";
    case OffsetOutcome::noOverlap:
      break;
  }
  return "nothing, because the frames share too few measured pixels";
}

void FrameOffset::removeFrom(float* frame, int width, int height) const {
  if (offset == 0 && slopeX == 0 && slopeY == 0 && gain == 1) {
    return;
  }
  for (int y = 0; y < height; ++y) {
    float* row = frame + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
    const double left = offset + slopeY * (static_cast<double>(y) / height - 0.5) - 0.5 * slopeX;
    for (int x = 0; x < width; ++x) {
      if (isMeasured(row[x])) {
        const double lessPlane = static_cast<double>(row[x]) - (left + slopeX * (static_cast<double>(x) / width));
        row[x] = static_cast<float>(gain == 1 ? lessPlane : (lessPlane - pivot) / gain + pivot);
      }
    }
  }
}

std::vector<FrameOffset> OffsetCorrection::medians(const FrameStack& frames, int reference) const {
  requireFrames(frames);
  requireReference(frames, reference);
  std::vector<FrameOffset> result;
  std::vector<float> differences;
  const float* there = frames.frames[reference];
  for (int k = 0; k < frames.count; ++k) {
    if (k == reference) {
      result.push_back(offsetOfReference());
      continue;
    }
    differences.clear();
    for (std::size_t i = 0; i < frames.pixels(); ++i) {
      const float difference = frames.frames[k][i] - there[i];
      if (isMeasured(frames.frames[k][i]) && isMeasured(there[i]) && isMeasured(difference)) {
        differences.push_back(difference);
      }
    }
    FrameOffset found;
    if (!differences.empty()) {
      found.outcome = OffsetOutcome::median;
      found.overlap = static_cast<double>(differences.size()) / static_cast<double>(frames.pixels());
      found.offset = static_cast<double>(medianOf(differences));
    }
    result.push_back(found);
  }
  return result;
}

std::vector<FrameOffset> OffsetCorrection::planes(const FrameStack& frames, int reference,
                                                  const std::vector<AffineMotion>& motions) const {
  requireFrames(frames);
  requireReference(frames, reference);
  if (motions.size() != static_cast<std::size_t>(frames.count)) {
    MOVRA_THROW("not as many motions as frames");
  }
  std::vector<FrameOffset> result;
  for (int k = 0; k < frames.count; ++k) {
    result.push_back(k == reference ? offsetOfReference()
                                    : offsetOf(samplesOf(frames.frames[k], frames.frames[reference], frames.width,
                                                         frames.height, motions[static_cast<std::size_t>(k)], gain),
                                               plane, gain));
  }
  return result;
}

}  // namespace movra::vision
