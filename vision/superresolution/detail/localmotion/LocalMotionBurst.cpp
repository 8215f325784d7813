#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "movra/StopWatch.h"
#include "vision/superresolution/detail/badpixels/ValueKey.h"
#include "vision/superresolution/detail/localmotion/FrameFill.h"
#include "vision/superresolution/detail/localmotion/FrameMotion.h"
#include "vision/superresolution/detail/localmotion/MotionBetween.h"
#include "vision/superresolution/detail/localmotion/RobustStatistics.h"
#include "vision/superresolution/detail/localmotion/TrustMasks.h"
#include "vision/superresolution/detail/localmotion/WholePixelSearch.h"

namespace movra::vision::detail {

namespace {

constexpr int fitIterations = 6;
constexpr int fitPass = 3;
constexpr double fitResidue = 0.002;
constexpr double fitWeight = 400;
constexpr int tileMargin = 6;
constexpr std::size_t noiseFrames = 3;            // that tell the noise; they are alike
constexpr std::size_t residualSamples = 1 << 14;  // of a frame
constexpr double usualMisalignment = 0.5;         // pixels
constexpr double localMisalignment = 0.12;  // with local motion: the field is wrong on both sides of a step in depth

/// How hard a preset tries.
struct Effort {
  int iterations;
  int passIterations;  // before the edge weights are made anew
  double residue;
  double motionPerTile;  // pixels by which the shift may vary across a core
  int smallestCore;
  int largestCore;
};

Effort effortOf(const LocalMotionOptions& options) {
  Effort effort{9, 3, 0.002, 0.12, 8, 64};
  if (options.preset == LocalMotionPreset::fast) {
    effort = {6, 3, 0.002, 0.2, 16, 64};
  } else if (options.preset == LocalMotionPreset::best) {
    effort = {24, 4, 0.001, 0.08, 8, 64};
  }
  if (options.iterations > 0) {
    effort.iterations = options.iterations;
  }
  if (options.relativeResidue > 0) {
    effort.residue = options.relativeResidue;
  }
  return effort;
}

/// std::floor of a number in the range of int, which older processors have no instruction for.
int floorOf(double value) {
  const int towardsZero = static_cast<int>(value);
  return towardsZero - (static_cast<double>(towardsZero) > value ? 1 : 0);
}

}  // namespace

void LocalMotionBurst::add(const float* frame) {
  given.emplace_back(frame, frame + static_cast<std::ptrdiff_t>(width) * height);
}

void LocalMotionBurst::setBadPixels(const unsigned char* map) {
  if (map == nullptr) {
    listedBad.clear();
  } else {
    listedBad.assign(map, map + static_cast<std::ptrdiff_t>(width) * height);
  }
}

LocalMotionResult LocalMotionBurst::reconstructTaken(const LocalMotionOptions& options, bool registrationOnly) {
  const StopWatch total;
  StopWatch stage;
  const auto lap = [&](double& seconds) {
    seconds += stage.stop();
    stage.start();
  };
  LocalMotionResult result;
  const JobRunner run(options.runJobs);
  const auto goOn = [&](double done) { return !options.progress || options.progress(done); };
  const auto cancelled = [&] {
    result.status = LocalMotionStatus::cancelled;
    result.image.release();
    return result;
  };
  if (!prepare(options, result, run)) {
    return result;
  }
  lap(result.seconds.preparation);
  if (!goOn(0.1)) {
    return cancelled();
  }
  findMotion(options, run, true);
  lap(result.seconds.motion);
  if (options.correctOffset && takeOutPlanes(run)) {
    blur(run);
    findMotion(options, run, false);
  }
  lap(result.seconds.preparation);
  if (!goOn(0.25)) {
    return cancelled();
  }
  leaveCandidatesToScene();
  markTrusted(options, run);
  lap(result.seconds.masks);
  const Faults faults = findFaults(options, run, result);
  if (faults.disturbedMotion) {
    findMotion(options, run, false);
  }
  lap(result.seconds.sensor);
  if (faults.changedFrames || faults.disturbedMotion) {
    markTrusted(options, run);
  }
  lap(result.seconds.masks);
  const Effort effort = effortOf(options);
  int core = options.tileCore;
  if (core == 0) {
    const double fitting = effort.motionPerTile / std::max(steepestMotion(), 1e-9);
    core = static_cast<int>(
        std::clamp(fitting, static_cast<double>(effort.smallestCore), static_cast<double>(effort.largestCore)));
  }
  SolverBurst burst = solverBurst(options);
  result.weightTV = options.weightTV;
  result.psfSigma = burst.psfSigma;
  referenceDeviation = burst.referenceDeviation;
  if (registrationOnly) {
    if (!goOn(0.5)) {
      return cancelled();
    }
    report(result);
    judge(result);
    result.seconds.total = total.stop();
    return result;
  }
  double smoothedNoise = 0;
  TiledReconstruction tiles(width, height, core, tileMargin, viewCount());
  if (referenceDeviation > 0) {
    TiledReconstruction::Residuals residuals;
    tiles.fitSample(burst, {fitWeight, fitIterations, fitPass, fitResidue}, run, residuals);
    measureResiduals(residuals);
    leaveOutBadFrames(options);
    const NoiseReport report = measureNoise(residuals);
    smoothedNoise = deviationOfMeans(residuals);
    burst = solverBurst(options);
    result.noise = report.residual;
    if (options.weightTV == 0) {
      result.weightTV = static_cast<double>(report.weightTV);
    }
  }
  lap(result.seconds.sensor);
  if (!goOn(0.5)) {
    return cancelled();
  }
  const auto outcome = tiles.solve(
      burst, {result.weightTV, effort.iterations, effort.passIterations, effort.residue, smoothedNoise}, run,
      [&](double done) { return goOn(0.5 + 0.5 * done); }, result.image);
  if (outcome.cancelled) {
    return cancelled();
  }
  lap(result.seconds.solve);
  result.tiles = outcome.tiles;
  result.tileCore = core;
  result.iterations = outcome.iterations;
  report(result);
  judge(result);
  result.seconds.total = total.stop();
  return result;
}

/// Good pixels, fill, level, blur. False if there is nothing to reconstruct from.
bool LocalMotionBurst::prepare(const LocalMotionOptions& options, LocalMotionResult& result, const JobRunner& run) {
  if (frames.empty()) {
    result.status = LocalMotionStatus::noFrames;
    return false;
  }
  run(count(), [&](int k) {
    Frame& frame = frames[static_cast<std::size_t>(k)];
    frame.use = FrameUse::used;
    frame.offset = 0;
    frame.agreement = 1;
    frame.coverage = 1;
    frame.residual = 0;
    frame.measured.assign(frame.given, frame.given + static_cast<std::ptrdiff_t>(width) * height);
    for (float& value : frame.measured) {
      const bool valid = !isFlag(bitsOf(value)) && value >= options.lowestValid && value <= options.highestValid &&
                         std::isfinite(value);
      value = valid ? value : std::numeric_limits<float>::quiet_NaN();
    }
    FixedPattern::removeFrom(frame.measured.data(), knownPattern);
  });
  bad = listedBad;
  findCandidates(options);
  run(count(), [&](int k) { fill(frames[static_cast<std::size_t>(k)]); });
  reference = options.reference;
  const Frame& ref = frames[static_cast<std::size_t>(reference)];
  if (ref.use != FrameUse::used) {
    result.status = LocalMotionStatus::noValidPixels;
    report(result);
    return false;
  }
  run(count(), [&](int k) {
    Frame& frame = frames[static_cast<std::size_t>(k)];
    if (frame.use != FrameUse::used) {
      return;
    }
    if (k != reference && options.correctOffset) {
      takeOutLevel(frame, ref);
    }
  });
  blur(run);
  std::vector<std::size_t> aligned = alignedFrames();
  if (aligned.size() > noiseFrames) {
    aligned = {aligned.front(), aligned[aligned.size() / 2], aligned.back()};
  }
  std::vector<double> noises(aligned.size());
  run(static_cast<int>(aligned.size()), [&](int job) {
    const auto i = static_cast<std::size_t>(job);
    noises[i] = NoiseEstimate::ofFrame(frames[aligned[i]].pixels.data(), width, height);
  });
  noise = medianOf(std::move(noises));
  return true;
}

void LocalMotionBurst::blur(const JobRunner& run) {
  run(count(), [&](int k) {
    Frame& frame = frames[static_cast<std::size_t>(k)];
    if (frame.use == FrameUse::noValidPixels) {
      return;
    }
    if (!frame.pyramid) {
      frame.pyramid = std::make_unique<BlurredPyramid>(width, height);
    }
    frame.pyramid->make(frame.pixels.data());
  });
}

/// Gives bad and unmeasured pixels a value.
void LocalMotionBurst::fill(Frame& frame) const {
  frame.pixels = frame.measured;
  frame.good.resize(frame.measured.size());
  for (std::size_t i = 0; i < frame.measured.size(); ++i) {
    frame.good[i] = !std::isnan(frame.measured[i]) && (bad.empty() || bad[i] == 0);
  }
  if (!fillBadPixels(frame.good, width, height, frame.pixels, frame.usable)) {
    frame.use = FrameUse::noValidPixels;
  }
}

/// Takes the median difference to the reference out.
void LocalMotionBurst::takeOutLevel(Frame& frame, const Frame& ref) {
  std::vector<float> differences;
  const std::size_t every = std::max<std::size_t>(1, frame.pixels.size() / 40000) | 1;
  for (std::size_t i = 0; i < frame.pixels.size(); i += every) {
    if (frame.good[i] != 0 && ref.good[i] != 0) {
      differences.push_back(frame.pixels[i] - ref.pixels[i]);
    }
  }
  const float level = medianOf(differences);
  for (std::size_t i = 0; i < frame.pixels.size(); ++i) {
    frame.pixels[i] -= level;
    frame.measured[i] -= level;
  }
  frame.offset += static_cast<double>(level);
}

void LocalMotionBurst::findMotion(const LocalMotionOptions& options, const JobRunner& run, bool search) {
  const MotionFrame ref = frames[static_cast<std::size_t>(reference)].forMotion();
  const FrameMotionSearch motionSearch(ref, noise);
  run(count(), [&](int k) {
    Frame& frame = frames[static_cast<std::size_t>(k)];
    frame.others.clear();
    if (k == reference || frame.use == FrameUse::noValidPixels) {
      frame.field = MotionField({}, width, height);
      return;
    }
    if (!takenMotions.empty()) {
      frame.field = MotionField(
          motionBetween(takenMotions[static_cast<std::size_t>(reference)], takenMotions[static_cast<std::size_t>(k)]),
          width, height);
      return;
    }
    const AffineMotion start = search ? searchShift(*ref.pyramid, *frame.pyramid) : frame.field.affine();
    FrameMotion found = motionSearch.find(frame.forMotion(), start, search);
    frame.field = std::move(found.field);
    for (MotionField& field : found.others) {
      frame.others.push_back({std::move(field), {}});
    }
    frame.agreement = found.agreement;
    frame.use = FrameUse::used;
  });
  leaveOutBadFrames(options);
}

double LocalMotionBurst::steepestMotion() const {
  double steepest = 0;
  for (const Frame& frame : frames) {
    if (frame.use == FrameUse::used) {
      steepest = std::max(steepest, frame.field.steepest());
      for (const Layer& other : frame.others) {
        steepest = std::max(steepest, other.field.steepest());
      }
    }
  }
  return steepest;
}

void LocalMotionBurst::markTrusted(const LocalMotionOptions& options, const JobRunner& run) {
  const auto misalignmentOf = [&](const Frame& frame) {
    return options.alignmentError > 0                       ? options.alignmentError
           : frame.field.isAffine() && frame.others.empty() ? usualMisalignment
                                                            : localMisalignment;
  };
  const TrustMasks masks(frames[static_cast<std::size_t>(reference)].forMotion(), noise);
  run(count(), [&](int k) {
    Frame& frame = frames[static_cast<std::size_t>(k)];
    if (k == reference) {
      frame.trusted.assign(frame.pixels.size(), 1);
    } else if (frame.use == FrameUse::used) {
      std::vector<MotionLayer> layers{{&frame.field, &frame.trusted}};
      for (Layer& other : frame.others) {
        layers.push_back({&other.field, &other.trusted});
      }
      masks.mark(frame.forMotion(), layers, misalignmentOf(frame));
      const auto trusted = std::count(frame.trusted.begin(), frame.trusted.end(), 1);
      frame.coverage = static_cast<double>(trusted) / static_cast<double>(frame.trusted.size());
    } else {
      frame.trusted.clear();
    }
  });
  leaveOutBadFrames(options);
}

/// Frames, and frames by another motion.
int LocalMotionBurst::viewCount() const {
  std::size_t views = frames.size();
  for (const Frame& frame : frames) {
    views += frame.others.size();
  }
  return static_cast<int>(views);
}

SolverBurst LocalMotionBurst::solverBurst(const LocalMotionOptions& options) const {
  SolverBurst burst{width, height, {}, {}, {}, reference, 0, options.solverSigma};
  if (burst.psfSigma == 0) {
    // The taps integrate over a high-resolution pixel, which has a variance of its own.
    constexpr double pixelVariance = 1. / 12;
    constexpr double leastVariance = 0.02;
    burst.psfSigma = std::sqrt(std::max(leastVariance, options.psfSigma * options.psfSigma - pixelVariance));
  }
  for (const Frame& frame : frames) {
    const bool used = frame.use == FrameUse::used;
    burst.frames.push_back({frame.pixels.data(), frame.measured.data(), frame.good.data(),
                            used ? frame.trusted.data() : nullptr, &frame.field});
    for (const Layer& other : frame.others) {
      if (used && !other.trusted.empty()) {
        burst.others.push_back(burst.frames.back());
        burst.others.back().trusted = other.trusted.data();
        burst.others.back().field = &other.field;
        burst.owners.push_back(static_cast<int>(burst.frames.size()) - 1);
      }
    }
  }
  const Frame& ref = frames[static_cast<std::size_t>(reference)];
  double sum = 0, squares = 0, values = 0;
  for (std::size_t i = 0; i < ref.pixels.size(); ++i) {
    if (ref.good[i] != 0) {
      sum += static_cast<double>(ref.pixels[i]);
      values += 1;
    }
  }
  const double mean = sum / values;
  for (std::size_t i = 0; i < ref.pixels.size(); ++i) {
    if (ref.good[i] != 0) {
      const double d = static_cast<double>(ref.pixels[i]) - mean;
      squares += d * d;
    }
  }
  const double deviation = std::sqrt(squares / values);
  burst.referenceDeviation = deviation > 1e-6 * std::abs(mean) && deviation > 1e-18 ? deviation : 0;
  return burst;
}

/// Takes the residuals of pixels that are not good out, and sets each used frame's deviation.
void LocalMotionBurst::measureResiduals(std::vector<std::vector<float>>& residuals) {
  for (const std::size_t k : alignedFrames()) {
    for (std::size_t i = 0; i < residuals[k].size(); ++i) {
      if (frames[k].good[i] == 0) {
        residuals[k][i] = std::numeric_limits<float>::quiet_NaN();
      }
    }
    const float* const left = residuals[k].data();
    std::vector<float> sample = sampleOf({&left, 1, width, height}, residualSamples);
    frames[k].residual = robustDeviation(sample);
  }
}

/// What the residuals of the used frames say, of the reference's where another frame sees the place, too: one frame alone is
/// explained with hardly a residual.
NoiseReport LocalMotionBurst::measureNoise(std::vector<std::vector<float>>& residuals) const {
  std::vector<const float*> pixels, left;
  int referencePlace = 0;
  const std::vector<std::size_t> aligned = alignedFrames();
  std::vector<char> seen(aligned.size() > 1 ? residuals.front().size() : 0, 0);
  for (const std::size_t k : aligned) {
    if (static_cast<int>(k) != reference) {
      const auto add = [&](const std::vector<char>& trusted) {
        std::transform(seen.begin(), seen.end(), trusted.begin(), seen.begin(), std::bit_or<>());
      };
      add(frames[k].trusted);
      std::for_each(frames[k].others.begin(), frames[k].others.end(), [&](const Layer& l) { add(l.trusted); });
    }
  }
  for (const std::size_t k : aligned) {
    if (static_cast<int>(k) == reference) {
      referencePlace = static_cast<int>(pixels.size());
      for (std::size_t i = 0; i < seen.size(); ++i) {
        residuals[k][i] = seen[i] != 0 ? residuals[k][i] : std::numeric_limits<float>::quiet_NaN();
      }
    }
    pixels.push_back(frames[k].pixels.data());
    left.push_back(residuals[k].data());
  }
  const auto used = static_cast<int>(pixels.size());
  return NoiseEstimate::ofResiduals({pixels.data(), used, width, height}, referencePlace,
                                    {left.data(), used, width, height}, noise);
}

/// Robust standard deviation of the residuals' means over 3 x 3 pixels, where all are known: what is left of noise that
/// neighbours may share.
double LocalMotionBurst::deviationOfMeans(const std::vector<std::vector<float>>& residuals) const {
  std::vector<float> means;
  for (const std::size_t k : alignedFrames()) {
    for (int y = 1; y + 1 < height; y += 2) {
      const float* const row = residuals[k].data() + static_cast<std::ptrdiff_t>(y) * width;
      for (int x = 1; x + 1 < width; x += 2) {
        float sum = 0;
        for (int i = -1; i <= 1; ++i) {
          for (int j = -1; j <= 1; ++j) {
            sum += row[i * width + x + j];
          }
        }
        if (std::isfinite(sum)) {
          means.push_back(sum / 9);
        }
      }
    }
  }
  return means.empty() ? 0 : static_cast<double>(robustSpread(means).deviation);
}

void LocalMotionBurst::report(LocalMotionResult& result) const {
  result.frames.clear();
  result.field.shifts.clear();
  result.usedFrames = 0;
  const int columns = 9, rows = 7;
  ShiftField& field = result.field;
  field = {
      columns, rows, 0, 0, static_cast<double>(width - 1) / (columns - 1), static_cast<double>(height - 1) / (rows - 1),
      {}};
  result.coverage.create(height, width);
  result.coverage.setTo(0);
  if (result.badPixelMap.empty()) {  // not searched
    result.badPixelMap.create(height, width);
    result.badPixelMap.setTo(0);
  }
  for (std::size_t k = 0; k < frames.size(); ++k) {
    const Frame& frame = frames[k];
    LocalMotionFrame told;
    told.use = frame.use;
    told.motion = frame.field.affine();
    told.agreement = frame.agreement;
    told.localMotion = frame.field.spread();
    told.offset = frame.offset;
    told.residual = frame.residual;
    told.coverage = 0;
    std::vector<cv::Point2f> shifts;
    for (int i = 0; i < columns * rows; ++i) {
      const auto s = frame.field.shiftAt(field.stepX * (i % columns), field.stepY * (i / columns));
      shifts.emplace_back(static_cast<float>(s.x), static_cast<float>(s.y));
    }
    field.shifts.push_back(std::move(shifts));
    if (frame.use == FrameUse::used && !frame.trusted.empty()) {
      ++result.usedFrames;
      double backed = 0;
      const auto countLayer = [&](const MotionField& motion, const std::vector<char>& trusted) {
        for (int y = 0; y < height; ++y) {
          for (int x = 0; x < width; ++x) {
            const std::size_t i =
                static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
            if (trusted[i] == 0) {
              continue;
            }
            const auto s = static_cast<int>(k) == reference ? AffineMotion::Shift{0, 0} : motion.shiftAt(x, y);
            const int u = floorOf(x + s.x + 0.5), v = floorOf(y + s.y + 0.5);
            if (u >= 0 && u < width && v >= 0 && v < height &&
                frame.good[static_cast<std::size_t>(v) * static_cast<std::size_t>(width) +
                           static_cast<std::size_t>(u)] != 0) {
              ++result.coverage(y, x);
              backed += 1;
            }
          }
        }
      };
      countLayer(frame.field, frame.trusted);
      for (const Layer& other : frame.others) {
        countLayer(other.field, other.trusted);
      }
      told.coverage = backed / (static_cast<double>(width) * height);
    }
    result.frames.push_back(told);
  }
}

void LocalMotionBurst::judge(LocalMotionResult& result) const {
  result.status = referenceDeviation == 0  ? LocalMotionStatus::structureless
                  : givenCount() == 1      ? LocalMotionStatus::singleFrame
                  : result.usedFrames == 1 ? LocalMotionStatus::referenceAlone
                                           : LocalMotionStatus::done;
}

}  // namespace movra::vision::detail
