#include "tools/movra-sr/reconstruction/LocalMotion.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "movra/Exception.h"
#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/reconstruction/JobPool.h"
#include "vision/superresolution/LocalMotionSuperResolution.h"

namespace movra::tool {

namespace {

constexpr double blurOfPixelArea = 0.57735;  // a box of two high-resolution pixels

vision::LocalMotionOptions optionsFrom(const Parameters& parameters, JobPool& pool) {
  vision::LocalMotionOptions options;
  options.preset = parameters.preset == Preset::fast   ? vision::LocalMotionPreset::fast
                   : parameters.preset == Preset::best ? vision::LocalMotionPreset::best
                                                       : vision::LocalMotionPreset::standard;
  options.reference = parameters.referenceSlot == Parameters::bestReference ? vision::LocalMotionOptions::bestReference
                                                                            : parameters.referenceSlot;
  if (parameters.counts) {
    options.lowestValid = -32768;
    options.highestValid = 65535;
  }
  const auto set = [](auto& option, const auto& value) {
    if (value) {
      option = *value;
    }
  };
  const auto setDouble = [](double& option, const std::optional<float>& value) {
    if (value) {
      option = static_cast<double>(*value);
    }
  };
  setDouble(options.psfSigma, parameters.psfSigma);
  if (parameters.isPsfOfTable) {
    // The table's smaller widths say that the optics blur nothing; the engines' taps cover the pixel's area all the same.
    options.psfSigma = std::max(options.psfSigma, blurOfPixelArea);
  }
  setDouble(options.weightTV, parameters.weightTV);
  setDouble(options.relativeResidue, parameters.relativeResidue);
  set(options.iterations, parameters.iterations);
  options.frames = parameters.frames;
  options.correctOffset = parameters.correctOffset;
  options.findBadPixels = parameters.findBadPixels;
  options.correctPattern = parameters.correctPattern;
  options.runJobs = [&pool](int jobs, const std::function<void(int)>& job) { pool.run(jobs, job); };
  return options;
}

FrameOutcome outcomeOf(const vision::LocalMotionFrame& frame, const std::string& name) {
  FrameOutcome outcome;
  outcome.name = name;
  outcome.used = frame.use == vision::FrameUse::used;
  outcome.spare = frame.use == vision::FrameUse::spare;
  if (!outcome.used) {
    const std::string words = vision::toString(frame.use);
    const std::string prefix = "left out: ";
    outcome.reason = words.rfind(prefix, 0) == 0 ? words.substr(prefix.size()) : words;
  }
  const vision::AffineMotion& motion = frame.motion;
  outcome.motion = motion;
  outcome.shift = {motion.x, motion.y};
  outcome.roll = std::atan2(motion.yx - motion.xy, motion.xx + motion.yy) * 180 / CV_PI;
  outcome.zoom = 100 * (std::sqrt(std::abs(motion.xx * motion.yy - motion.xy * motion.yx)) - 1);
  outcome.agreement = frame.agreement;
  outcome.localMotion = frame.localMotion;
  outcome.offset = frame.offset;
  outcome.usable = frame.coverage;
  outcome.residual = frame.residual;
  return outcome;
}

Verdict verdictOf(const vision::LocalMotionResult& result) {
  switch (result.status) {
    case vision::LocalMotionStatus::done:
      return Verdict::good;
    case vision::LocalMotionStatus::singleFrame:
    case vision::LocalMotionStatus::referenceAlone:
      return Verdict::singleFrame;
    default:
      return Verdict::registrationFailed;
  }
}

Reconstruction convert(vision::LocalMotionResult&& found, const std::vector<Frame>& window) {
  Reconstruction result;
  result.verdict = verdictOf(found);
  if (result.verdict == Verdict::registrationFailed) {
    result.reason = vision::toString(found.status);
  } else {
    result.image = found.image;
    result.coverage = found.coverage;
  }
  result.reference = found.reference;
  for (std::size_t i = 0; i < window.size(); ++i) {
    const bool isTold = i < found.frames.size();
    result.frames.push_back(outcomeOf(isTold ? found.frames[i] : vision::LocalMotionFrame{}, window[i].name));
  }
  result.field = {found.field.columns,
                  found.field.rows,
                  {found.field.left, found.field.top},
                  {found.field.stepX, found.field.stepY},
                  std::move(found.field.shifts)};
  result.badPixels = found.badPixelMap;
  result.pattern = std::move(found.patternAverage);
  result.figures = {{"noise", found.noise},        {"bad_pixels_found", found.badPixels},
                    {"pattern", found.pattern},    {"tv_weight", found.weightTV},
                    {"psf_sigma", found.psfSigma}, {"iterations", found.iterations},
                    {"tiles", found.tiles},        {"tile_core", found.tileCore}};
  result.seconds = {{"preparation", found.seconds.preparation},
                    {"motion", found.seconds.motion},
                    {"sensor", found.seconds.sensor},
                    {"masks", found.seconds.masks},
                    {"solve", found.seconds.solve},
                    {"total", found.seconds.total}};
  return result;
}

/// The library's refusal of a parameter, with the option's name.
std::string withOptionName(std::string refusal) {
  const std::pair<const char*, const char*> names[] = {{"psfSigma", "--psf-sigma"},
                                                       {"weightTV", "--tv-weight"},
                                                       {"iterations", "--iterations"},
                                                       {"relativeResidue", "--relative-residue"}};
  for (const auto& [name, option] : names) {
    if (refusal.rfind(name, 0) == 0) {
      return option + refusal.substr(std::string(name).size()) + "; --motion global takes other values";
    }
  }
  return refusal;
}

}  // namespace

Reconstruction reconstructLocally(const std::vector<Frame>& window, const Parameters& parameters) {
  JobPool pool(parameters.threads);
  const cv::Size size = window.front().pixels.size();
  try {
    vision::LocalMotionSuperResolution method(size.width, size.height, optionsFrom(parameters, pool));
    for (const Frame& frame : window) {
      const cv::Mat_<float> dense = frame.pixels.isContinuous() ? frame.pixels : frame.pixels.clone();
      method.addFrame(dense.ptr<float>());
    }
    if (!parameters.pattern.empty()) {
      method.setKnownPattern(parameters.pattern.data());
    }
    method.setMotions(parameters.motions);
    return convert(parameters.wantsImage ? method.computeSR() : method.registerFrames(), window);
  } catch (const Exception& refusal) {
    throw Failure(ExitCode::usage, withOptionName(refusal.what()));
  }
}

}  // namespace movra::tool
