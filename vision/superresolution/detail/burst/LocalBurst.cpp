#include "vision/superresolution/detail/burst/LocalBurst.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>

#include "vision/superresolution/LocalMotionSuperResolution.h"

namespace movra::vision::detail {

namespace {

using Job = std::function<void(int)>;

void runJob(void* job, int index) {
  (*static_cast<const Job*>(job))(index);
}

LocalMotionOptions translate(const movra_sr_options& given) {
  LocalMotionOptions options;
  options.preset = given.preset == MOVRA_SR_PRESET_FAST   ? LocalMotionPreset::fast
                   : given.preset == MOVRA_SR_PRESET_BEST ? LocalMotionPreset::best
                                                          : LocalMotionPreset::standard;
  options.reference = given.reference;
  options.lowestValid = static_cast<float>(given.lowest_valid);
  options.highestValid = static_cast<float>(given.highest_valid);
  options.psfSigma = given.psf_sigma;
  options.weightTV = given.weight_tv;
  options.iterations = given.iterations;
  options.relativeResidue = given.relative_residue;
  options.correctOffset = given.keep_offset == 0;
  options.findBadPixels = given.keep_bad_pixels == 0;
  options.frames = given.frames;
  options.correctPattern = given.keep_pattern == 0;
  if (given.run_jobs != nullptr) {
    options.runJobs = [run = given.run_jobs, user = given.run_jobs_user](int jobs, const Job& job) {
      run(user, jobs, runJob, const_cast<Job*>(&job));
    };
  }
  if (given.progress != nullptr) {
    options.progress = [tell = given.progress, user = given.progress_user](double done) {
      return tell(user, done) == 0;
    };
  }
  return options;
}

movra_sr_status translate(LocalMotionStatus status) {
  switch (status) {
    case LocalMotionStatus::done:
      return MOVRA_SR_SUCCESS;
    case LocalMotionStatus::singleFrame:
      return MOVRA_SR_SINGLE_FRAME;
    case LocalMotionStatus::referenceAlone:
      return MOVRA_SR_REFERENCE_ALONE;
    case LocalMotionStatus::structureless:
      return MOVRA_SR_STRUCTURELESS;
    case LocalMotionStatus::noFrames:
      return MOVRA_SR_NO_FRAMES;
    case LocalMotionStatus::noValidPixels:
      return MOVRA_SR_BAD_FRAME;
    case LocalMotionStatus::cancelled:
      return MOVRA_SR_CANCELLED;
  }
  return MOVRA_SR_INTERNAL_ERROR;
}

movra_sr_field gridOf(const ShiftField& field) {
  return {sizeof(movra_sr_field), field.columns, field.rows, field.left, field.top, field.stepX, field.stepY};
}

}  // namespace

BurstOutcome reconstructLocally(const BurstFrames& burst, const movra_sr_options& options, bool wantsImage) {
  LocalMotionSuperResolution engine(burst.width, burst.height, translate(options));
  if (!burst.badPixels.empty()) {
    engine.setBadPixels(burst.badPixels.data());
  }
  for (const std::vector<float>& frame : burst.frames) {
    engine.addFrame(frame.data());
  }
  if (!burst.pattern.empty()) {
    engine.setKnownPattern(burst.pattern.data());
  }
  LocalMotionResult local = wantsImage ? engine.computeSR() : engine.registerFrames();

  BurstOutcome outcome;
  movra_sr_result& result = outcome.result;
  result.frames = burst.count();
  result.status = translate(local.status);
  if (result.status < 0) {
    outcome.fail(result.status, toString(local.status));
    return outcome;
  }
  outcome.image = local.image;
  outcome.coverage = local.coverage;
  outcome.field = gridOf(local.field);
  constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
  for (const LocalMotionFrame& frame : local.frames) {
    const bool used = frame.use == FrameUse::used;
    outcome.middleShifts.push_back(used ? cv::Point2d(frame.motion.x, frame.motion.y)
                                        : cv::Point2d(notANumber, notANumber));
    outcome.remarks.push_back(toString(frame.use));
  }
  outcome.shifts = std::move(local.field.shifts);
  const std::size_t places =
      static_cast<std::size_t>(outcome.field.columns) * static_cast<std::size_t>(outcome.field.rows);
  for (std::size_t i = 0; i < outcome.middleShifts.size(); ++i) {
    if (i >= outcome.shifts.size()) {
      outcome.shifts.emplace_back();
    }
    if (std::isnan(outcome.middleShifts[i].x) || outcome.shifts[i].size() != places) {
      outcome.shifts[i].assign(places, cv::Point2f(outcome.middleShifts[i]));
    }
  }
  result.used_frames = local.usedFrames;
  result.reference = local.reference;
  result.noise = wantsImage ? local.noise : notANumber;
  result.weight_tv = wantsImage ? local.weightTV : 0;
  result.psf_sigma = local.psfSigma;
  result.iterations = local.iterations;
  result.seconds = {local.seconds.preparation, local.seconds.motion, local.seconds.masks + local.seconds.sensor,
                    local.seconds.solve, local.seconds.total};
  outcome.badPixels.assign(local.badPixelMap.begin(), local.badPixelMap.end());
  result.bad_pixels = static_cast<int>(std::count(outcome.badPixels.begin(), outcome.badPixels.end(), 1));
  result.doubtful_pixels = local.badPixels - result.bad_pixels;
  result.pattern = local.pattern;
  outcome.pattern = local.patternAverage.mean();
  outcome.patternFrames = std::move(local.patternAverage.weights);
  outcome.pattern.resize(burst.pixels());
  outcome.patternFrames.resize(burst.pixels());
  outcome.rateCoverage();
  return outcome;
}

}  // namespace movra::vision::detail
