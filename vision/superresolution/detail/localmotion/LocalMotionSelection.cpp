// Which of the frames given take part, and what the result tells of the others.

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "movra/StopWatch.h"
#include "vision/superresolution/FrameSelection.h"
#include "vision/superresolution/detail/localmotion/FrameSurvey.h"
#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"
#include "vision/superresolution/detail/localmotion/MotionBetween.h"
#include "vision/superresolution/detail/sensor/FrameChecks.h"

namespace movra::vision::detail {

namespace {

constexpr int fewFrames = 12;  // the least that `automaticFrames` stands for
constexpr float notMeasured = std::numeric_limits<float>::quiet_NaN();
constexpr int fewestForReference = 3;  // of two frames each suits the other alike

/// Whether the frame has a valid pixel.
bool hasValidPixel(const std::vector<float>& frame, const LocalMotionOptions& options) {
  return std::any_of(frame.begin(), frame.end(), [&](const float& value) {
    return isMeasured(value) && value >= options.lowestValid && value <= options.highestValid;
  });
}

/// Standard deviation of a frame's noise over that of its valid values, as far as one frame tells.
struct NoiseShare {
  double noise;
  double deviation;
};

NoiseShare noiseOf(std::vector<float> frame, int width, int height, const LocalMotionOptions& options) {
  for (float& value : frame) {
    value = value >= options.lowestValid && value <= options.highestValid ? value : notMeasured;
  }
  const float* const pixels = frame.data();
  const std::vector<float> none(frame.size(), notMeasured);
  const float* const nothing = none.data();
  const double noise = NoiseEstimate::ofFrame(pixels, width, height);
  const NoiseReport report =
      NoiseEstimate::ofResiduals({&pixels, 1, width, height}, 0, {&nothing, 1, width, height}, noise);
  return {noise, report.deviation};
}

double offGrid(const AffineMotion& motion) {
  return std::hypot(motion.x - std::floor(motion.x + 0.5), motion.y - std::floor(motion.y + 0.5));
}

FrameUse useOf(FrameVerdict verdict) {
  switch (verdict) {
    case FrameVerdict::reference:
    case FrameVerdict::taken:
      return FrameUse::used;
    case FrameVerdict::spare:
      return FrameUse::spare;
    case FrameVerdict::notRegistered:
      return FrameUse::notAligned;
    case FrameVerdict::fewAgreeingBlocks:
      return FrameUse::fewAgreeing;
    case FrameVerdict::lowCoverage:
      return FrameUse::lowCoverage;
    case FrameVerdict::largeShift:
      return FrameUse::largeShift;
    case FrameVerdict::largeResidual:
      break;
  }
  return FrameUse::largeResidual;
}

}  // namespace

/// All frames that were given, with the number of those that take part. The reference is the one that the options name,
/// or that suits the others best; of two frames, or when nothing can be aligned, the one in the middle.
LocalMotionBurst::Choice LocalMotionBurst::choose(const LocalMotionOptions& options) const {
  const auto count = static_cast<int>(given.size());
  Choice choice;
  choice.told.resize(given.size());
  choice.reference = options.reference;
  choice.wanted = options.frames == LocalMotionOptions::automaticFrames ? std::min(count, fewFrames)
                  : options.frames == LocalMotionOptions::allFrames     ? count
                                                                        : std::min(count, options.frames);
  if (choice.reference == LocalMotionOptions::bestReference) {
    choice.reference = count / 2;
    for (int k = 0; k < count && !hasValidPixel(given[static_cast<std::size_t>(choice.reference)], options); ++k) {
      choice.reference = k;
    }
  }
  for (int k = 0; k < count; ++k) {
    choice.taken.push_back(k);
  }
  const bool seeksReference = options.reference == LocalMotionOptions::bestReference && count >= fewestForReference;
  if ((count <= choice.wanted && !seeksReference) ||
      !hasValidPixel(given[static_cast<std::size_t>(choice.reference)], options)) {
    return choice;
  }
  survey(options, choice);
  return choice;
}

void LocalMotionBurst::survey(const LocalMotionOptions& options, Choice& choice) const {
  const JobRunner run(options.runJobs);
  std::vector<const float*> all;
  for (const std::vector<float>& frame : given) {
    all.push_back(frame.data());
  }
  std::vector<SurveyedFrame> found(given.size());
  if (knownMotions.empty()) {
    found = FrameSurvey(width, height, options.lowestValid, options.highestValid).look(all, choice.reference, run);
  }
  std::vector<FrameQuality> qualities;
  for (std::size_t k = 0; k < given.size(); ++k) {
    const bool known = !knownMotions.empty();
    qualities.push_back(known
                            ? FrameQuality{knownMotions[k], 1, 1, 0, hasValidPixel(given[k], options)}
                            : FrameQuality{found[k].motion, found[k].agreement, 1, found[k].residual, found[k].valid});
    choice.told[k].use = qualities[k].registered ? FrameUse::used : FrameUse::noValidPixels;
    choice.told[k].agreement = qualities[k].agreement;
    choice.told[k].offset = found[k].level;
    choice.told[k].coverage = 0;
  }
  FrameSelection selection;
  selection.setLeastAgreement(options.leastAgreement);
  selection.setCount(options.frames);
  selection.setReference(options.reference == LocalMotionOptions::bestReference ? -1 : choice.reference);
  const bool judgesNoise = options.frames == LocalMotionOptions::automaticFrames && all.size() > fewFrames;
  const double noiseShare = judgesNoise ? noiseShareOf(options, choice.reference, qualities) : 0;
  const FrameSelectionReport report = selection.select(qualities, height, noiseShare);
  if (report.reference < 0) {
    return;
  }
  choice.wanted = std::min(report.wanted, static_cast<int>(given.size()));
  choice.reference = report.reference;
  choice.taken = report.taken;
  for (std::size_t k = 0; k < given.size(); ++k) {
    choice.told[k].motion =
        motionBetween(qualities[static_cast<std::size_t>(report.reference)].motion, qualities[k].motion);
    if (choice.told[k].use != FrameUse::noValidPixels) {
      choice.told[k].use = useOf(report.verdicts[k]);
    }
  }
}

/// Noise over the deviation of the reference. Fine detail reads as noise in one frame, but hardly in the difference to
/// another frame that lies off by whole pixels.
double LocalMotionBurst::noiseShareOf(const LocalMotionOptions& options, int base,
                                      const std::vector<FrameQuality>& qualities) const {
  const std::vector<float>& reference = given[static_cast<std::size_t>(base)];
  const NoiseShare alone = noiseOf(reference, width, height, options);
  std::size_t twin = given.size();
  for (std::size_t k = 0; k < given.size(); ++k) {
    const bool better = twin == given.size() || offGrid(qualities[k].motion) < offGrid(qualities[twin].motion);
    if (static_cast<int>(k) != base && qualities[k].registered && better) {
      twin = k;
    }
  }
  double noise = alone.noise;
  if (twin < given.size()) {
    const int dx = static_cast<int>(std::floor(qualities[twin].motion.x + 0.5));
    const int dy = static_cast<int>(std::floor(qualities[twin].motion.y + 0.5));
    std::vector<float> difference(reference.size(), notMeasured);
    for (int y = std::max(0, -dy); y < std::min(height, height - dy); ++y) {
      for (int x = std::max(0, -dx); x < std::min(width, width - dx); ++x) {
        const std::ptrdiff_t here = static_cast<std::ptrdiff_t>(y) * width + x;
        const auto i = static_cast<std::size_t>(here),
                   j = static_cast<std::size_t>(here + dx + std::ptrdiff_t{dy} * width);
        difference[i] = reference[i] - given[twin][j];
      }
    }
    noise = std::min(noise, std::sqrt(0.5) * noiseOf(std::move(difference), width, height, options).noise);
  }
  return alone.deviation > 0 ? noise / alone.deviation : 0;
}

LocalMotionResult LocalMotionBurst::reconstruct(const LocalMotionOptions& options, bool registrationOnly) {
  StopWatch stage;
  if (given.empty()) {
    frames.clear();
    return reconstructTaken(options, registrationOnly);
  }
  const Choice choice = choose(options);
  const double seconds = stage.stop();
  // What is left of an earlier choice has its memory used again.
  frames.resize(choice.taken.size());
  takenMotions.clear();
  LocalMotionOptions ofTaken = options;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const auto k = static_cast<std::size_t>(choice.taken[i]);
    frames[i].given = given[k].data();
    if (!knownMotions.empty()) {
      takenMotions.push_back(knownMotions[k]);
    }
    if (choice.taken[i] == choice.reference) {
      ofTaken.reference = static_cast<int>(i);
    }
  }
  LocalMotionResult result = reconstructTaken(ofTaken, registrationOnly);
  result.wantedFrames = choice.wanted;
  result.seconds.motion += seconds;
  result.seconds.total += seconds;
  tellAll(choice, result);
  return result;
}

/// Puts the frames that were left out back among those that took part.
void LocalMotionBurst::tellAll(const Choice& choice, LocalMotionResult& result) const {
  result.reference = choice.reference;
  if (result.frames.size() != choice.taken.size() || choice.taken.size() == given.size()) {
    return;
  }
  std::vector<LocalMotionFrame> all = choice.told;
  std::vector<std::vector<cv::Point2f>> shifts(given.size());
  for (std::size_t i = 0; i < choice.taken.size(); ++i) {
    const auto k = static_cast<std::size_t>(choice.taken[i]);
    all[k] = result.frames[i];
    shifts[k] = std::move(result.field.shifts[i]);
  }
  const ShiftField& field = result.field;
  for (std::size_t k = 0; k < given.size(); ++k) {
    for (int i = 0; shifts[k].size() < static_cast<std::size_t>(field.columns * field.rows); ++i) {
      const AffineMotion::Shift s =
          all[k].motion.shiftAt(field.stepX * (i % field.columns), field.stepY * (i / field.columns), width, height);
      shifts[k].emplace_back(static_cast<float>(s.x), static_cast<float>(s.y));
    }
  }
  result.frames = std::move(all);
  result.field.shifts = std::move(shifts);
}

/// Leaves out frames that are far worse than the others by what is known so far.
void LocalMotionBurst::leaveOutBadFrames(const LocalMotionOptions& options) {
  std::vector<FrameQuality> qualities;
  for (const Frame& frame : frames) {
    qualities.push_back({frame.field.affine(), frame.agreement, frame.coverage, frame.residual,
                         frame.use != FrameUse::noValidPixels && frame.use != FrameUse::notAligned});
  }
  FrameSelection selection;
  selection.setLeastAgreement(options.leastAgreement);
  selection.setCount(FrameSelection::all);
  selection.setReference(reference);
  const FrameSelectionReport report = selection.select(qualities, height, 0);
  for (std::size_t k = 0; k < frames.size(); ++k) {
    if (frames[k].use == FrameUse::used) {
      frames[k].use = useOf(report.verdicts[k]);
    }
  }
}

}  // namespace movra::vision::detail
