#include "vision/superresolution/FixedPattern.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/LineOffsets.h"
#include "vision/superresolution/detail/sensor/MotionSpread.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"
#include "vision/superresolution/detail/sensor/SensorKernels.h"

namespace movra::vision {

namespace {

using namespace detail;

constexpr double clip = 4;  // deviations; larger residuals tell of the scene
constexpr double leastDistance = 0.25;
constexpr double leastKept = 0.05;  // chance gives a few per cent
constexpr float fewestFrames = 2;

std::size_t areaOf(int width, int height) {
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

void requireWhole(const PatternAverage& average) {
  const bool sizes = average.width > 0 && average.height > 0;
  const std::size_t pixels = sizes ? areaOf(average.width, average.height) : 0;
  if (average.sums.size() != pixels || average.weights.size() != pixels) {
    MOVRA_THROW("a pattern has not one element per pixel");
  }
}

}  // namespace

const char* toString(PatternOutcome outcome) {
  switch (outcome) {
    case PatternOutcome::notYet:
      return "not looked for yet";
    case PatternOutcome::found:
      return "found";
    case PatternOutcome::nothingFound:
      return "nothing found beyond chance";
    case PatternOutcome::tooLittleMotion:
      return "not looked for, because the frames lie less than 0.25 pixels apart";
    case PatternOutcome::tooFewFrames:
      break;
  }
  return "not looked for, because there are fewer than three frames";
}

std::vector<float> PatternAverage::mean() const {
  requireWhole(*this);
  std::vector<float> result(sums.size(), 0.0f);
  for (std::size_t i = 0; i < sums.size(); ++i) {
    const float quotient = weights[i] > 0 ? sums[i] / weights[i] : 0;
    result[i] = std::isfinite(quotient) ? quotient : 0;
  }
  return result;
}

void PatternAverage::merge(const PatternAverage& other) {
  requireWhole(*this);
  requireWhole(other);
  if (other.empty()) {
    return;
  }
  if (empty()) {
    width = other.width;
    height = other.height;
    sums.assign(other.sums.size(), 0.0f);
    weights.assign(other.sums.size(), 0.0f);
  }
  if (width != other.width || height != other.height) {
    MOVRA_THROW("the patterns differ in size");
  }
  for (std::size_t i = 0; i < sums.size(); ++i) {
    if (std::isfinite(other.sums[i]) && std::isfinite(other.weights[i]) && other.weights[i] > 0) {
      sums[i] += other.sums[i];
      weights[i] += other.weights[i];
    }
  }
}

FixedPattern::FixedPattern(int width_, int height_) : width(width_), height(height_) {
  if (width < 1 || height < 1) {
    MOVRA_THROW("a pattern needs at least one pixel");
  }
  total.assign(areaOf(width, height), 0.0f);
  step = total;
  counts = total;
}

bool FixedPattern::refuses(const FrameStack& residuals, const std::vector<AffineMotion>& motions) {
  if (residuals.count < 3) {
    state.outcome = PatternOutcome::tooFewFrames;
  } else if (medianDistance(motions) < leastDistance) {
    state.outcome = PatternOutcome::tooLittleMotion;
  } else {
    return false;
  }
  return true;
}

const std::vector<float>& FixedPattern::add(const FrameStack& residuals, const std::vector<AffineMotion>& motions,
                                            const unsigned char* bad) {
  requireFrames(residuals);
  if (residuals.width != width || residuals.height != height) {
    MOVRA_THROW("the residuals have another size than the pattern");
  }
  if (motions.size() != static_cast<std::size_t>(residuals.count)) {
    MOVRA_THROW("not as many motions as residuals");
  }
  std::fill(step.begin(), step.end(), 0.0f);
  if (refuses(residuals, motions)) {
    return step;
  }
  const auto limit = static_cast<float>(std::min(clip * robustDeviation(residuals), 1e18));
  std::fill(counts.begin(), counts.end(), 0.0f);
  std::vector<float> squares(step.size(), 0.0f);
  const std::vector<unsigned char> none(static_cast<std::size_t>(width), 0);
  const auto w = static_cast<std::size_t>(width);
  for (std::size_t at = 0; at < step.size(); at += w) {
    for (int k = 0; k < residuals.count; ++k) {
      sensorKernels().addResiduals(residuals.frames[k] + at, bad != nullptr ? bad + at : none.data(), limit, width,
                                   &step[at], &squares[at], &counts[at]);
    }
  }
  for (std::size_t i = 0; i < step.size(); ++i) {
    // From here on, squares are about the mean.
    squares[i] = std::max(0.0f, squares[i] - step[i] * step[i] / std::max(counts[i], 1.0f));
    step[i] /= std::max(counts[i], 1.0f);
  }
  const std::vector<float> lines = takeOutLines(residuals, motions, bad, limit);
  std::vector<float> means;
  for (std::size_t i = 0; i < step.size(); ++i) {
    if (counts[i] >= fewestFrames) {
      means.push_back(step[i]);
    }
  }
  const float middle = medianOf(means);
  const float kept = shrink(squares, middle);
  for (std::size_t i = 0; i < step.size(); ++i) {
    step[i] = counts[i] >= fewestFrames ? relaxation * kept * (step[i] - middle) : 0.0f;
    step[i] += lines.empty() ? 0.0f : lines[i];
    total[i] += step[i];
  }
  std::vector<float> copy = total;
  state.strength = robustDeviation(copy);
  state.kept = static_cast<double>(kept);
  state.grew = kept > 0 || !lines.empty();
  state.outcome =
      state.grew || state.outcome == PatternOutcome::found ? PatternOutcome::found : PatternOutcome::nothingFound;
  ++state.rounds;
  return step;
}

// Pattern of columns and of rows, one value per pixel; nothing if there is none. What of it the mean residuals show is taken
// out of them.
std::vector<float> FixedPattern::takeOutLines(const FrameStack& residuals, const std::vector<AffineMotion>& motions,
                                              const unsigned char* bad, float limit) {
  std::vector<float> found;
  const auto w = static_cast<std::size_t>(width), h = static_cast<std::size_t>(height);
  for (const SensorLines kind : {SensorLines::columns, SensorLines::rows}) {
    const std::vector<float> lines = lineOffsets(residuals, motions, bad, limit, kind);
    const std::size_t along = kind == SensorLines::columns ? w : 1, next = kind == SensorLines::columns ? 1 : w;
    const std::size_t length = kind == SensorLines::columns ? h : w;
    for (std::size_t line = 0; line < lines.size(); ++line) {
      found.resize(step.size(), 0.0f);
      float sum = 0, count = 0;
      for (std::size_t i = 0, at = line * next; i < length; ++i, at += along) {
        found[at] += lines[line];
        sum += counts[at] >= fewestFrames ? step[at] : 0.0f;
        count += counts[at] >= fewestFrames ? 1.0f : 0.0f;
      }
      for (std::size_t i = 0, at = line * next; i < length; ++i, at += along) {
        step[at] -= sum / std::max(count, 1.0f);
      }
    }
  }
  return found;
}

// 1 less the share of the variance of the means that the variance within the pixels explains; 0 for next to nothing.
float FixedPattern::shrink(const std::vector<float>& squares, float middle) const {
  double within = 0;
  double observations = 0;
  double pixels = 0;
  std::vector<float> means;
  for (std::size_t i = 0; i < step.size(); ++i) {
    if (counts[i] >= fewestFrames) {
      within += static_cast<double>(squares[i]);
      observations += static_cast<double>(counts[i]);
      pixels += 1;
      means.push_back(std::abs(step[i] - middle));
    }
  }
  if (pixels == 0) {
    return 0;
  }
  const double variance = within / (observations - pixels);
  const double deviation = deviationPerMad * static_cast<double>(medianOf(means));
  const double ofMeans = std::max(deviation * deviation, 1e-30);
  const double kept = 1 - variance * pixels / observations / ofMeans;
  return kept < leastKept ? 0.0f : static_cast<float>(kept);
}

PatternAverage FixedPattern::average(const std::vector<float>& before) const {
  if (!before.empty() && before.size() != total.size()) {
    MOVRA_THROW("the pattern beforehand has not one element per pixel");
  }
  PatternAverage result{width, height, std::vector<float>(total.size(), 0.0f), counts};
  for (std::size_t i = 0; i < total.size(); ++i) {
    result.sums[i] = counts[i] * (total[i] + (before.empty() ? 0.0f : before[i]));
  }
  return result;
}

void FixedPattern::removeFrom(float* frame, const std::vector<float>& pattern) {
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (isMeasured(frame[i])) {
      frame[i] -= pattern[i];
    }
  }
}

}  // namespace movra::vision
