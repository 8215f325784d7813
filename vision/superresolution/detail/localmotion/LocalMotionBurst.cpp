#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "movra/StopWatch.h"
#include "vision/superresolution/detail/badpixels/ValueKey.h"
#include "vision/superresolution/detail/localmotion/FrameFill.h"
#include "vision/superresolution/detail/localmotion/RobustStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr int fitIterations = 6;
constexpr int fitPass = 3;
constexpr double fitResidue = 0.002;
constexpr double fitWeight = 400;
constexpr int tileMargin = 6;
constexpr std::size_t noiseFrames = 3;  // that tell the noise; they are alike

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

/// Side of the tiles' cores across which the shift varies as much as it may.
int coreFor(double steepestMotion, const Effort& effort) {
  const double fitting = effort.motionPerTile / std::max(steepestMotion, 1e-9);
  return static_cast<int>(
      std::clamp(fitting, static_cast<double>(effort.smallestCore), static_cast<double>(effort.largestCore)));
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
  const int core = options.tileCore > 0 ? options.tileCore : coreFor(steepestMotion(), effort);
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

}  // namespace movra::vision::detail
