#include "tools/movra-sr/reconstruction/GlobalMotion.h"

#include <unistd.h>

#include <algorithm>
#include <type_traits>

#include "movra/Exception.h"
#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/DivertedDescriptor.h"
#include "tools/movra-sr/reconstruction/ReferenceEngine.h"
#include "tools/movra-sr/reconstruction/UnsignedCounts.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatNeon.h"

namespace movra::tool {

namespace {

using ProductionEngine = vision::SrFloat<vision::SrFloatRegistration2>;
using PhaseEngine = vision::SrFloat<vision::SrFloatRegistration1>;
using VectorEngine = vision::SrFloatNeon<vision::SrFloatNeonRegistration>;

constexpr float factor = 2;

[[noreturn]] void refuseFrame(const Frame& frame, const std::string& reason, bool counts) {
  const float lowest = counts ? -32768.f : -274.f;
  const float highest = counts ? 32767.f : 5000.f;
  const auto bad = std::count_if(frame.pixels.begin(), frame.pixels.end(),
                                 [&](float value) { return !(value >= lowest && value <= highest); });
  throw Failure(ExitCode::badInput,
                frame.name + ": " + reason + " (" + std::to_string(bad) +
                    " bad pixels; more than ten have no good neighbour.) Take --motion local, which "
                    "leaves bad pixels out, or leave the frame out.");
}

template <class Engine>
void configure(Engine& engine, const Parameters& parameters) {
  engine.setReferenceIndex(engineWindow - 1 - parameters.referenceSlot);
  const auto set = [&](auto setter, const auto& value) {
    if (value) {
      (engine.*setter)(*value);
    }
  };
  set(&Engine::setWeightTV, parameters.weightTV);
  set(&Engine::setRegError, parameters.registrationError);
  set(&Engine::setRelativeResidue, parameters.relativeResidue);
  set(&Engine::setPsfSigma, parameters.psfSigma);
  set(&Engine::setMaxCGIters, parameters.iterations);
  if constexpr (!std::is_same_v<Engine, VectorEngine>) {
    engine.setDataIsNUC(parameters.counts);
  }
}

double valueSpan(const cv::Mat_<float>& image) {
  double low = 0;
  double high = 0;
  cv::minMaxLoc(image, &low, &high);
  return high - low;
}

/// Adds the frames to the engine and what is known of them to the result.
template <class Engine>
void addFrames(Engine& engine, const std::vector<Frame>& window, const Parameters& parameters, Reconstruction& result) {
  for (const Frame& frame : window) {
    FrameOutcome outcome;
    outcome.name = frame.name;
    outcome.lowContrast = valueSpan(frame.pixels) < static_cast<double>(engine.getMinStructureThreshold());
    if (std::is_same_v<Engine, VectorEngine> && !cv::checkRange(frame.pixels)) {
      throw Failure(ExitCode::badInput, frame.name +
                                            ": has pixels that are not finite numbers, and --engine vector "
                                            "repairs none; use --engine production");
    }
    try {
      outcome.hasFallback = engine.addFrame(frame.pixels) < 0;
    } catch (const Exception& refusal) {
      refuseFrame(frame, refusal.what(), parameters.counts);
    }
    result.frames.push_back(outcome);
  }
}

template <class Engine>
Verdict verdictOf(float status) {
  if (status > 0) {
    return Verdict::good;
  }
  if (status == Engine::tooManyMaskedPixels) {
    return Verdict::tooFewUsablePixels;
  }
  if (status == Engine::displacementTooLarge) {
    return Verdict::displacementTooLarge;
  }
  return Verdict::registrationFailed;
}

template <class Engine>
void takeShifts(const Engine& engine, Reconstruction& result) {
  std::vector<cv::Point2f> shifts;
  engine.getCompleteShifts(shifts);
  for (std::size_t i = 0; i < result.frames.size(); ++i) {
    result.frames[i].shift = shifts[i];
  }
}

template <class Engine>
void takeMasks(const Engine& engine, Reconstruction& result) {
  std::vector<cv::Mat_<unsigned char>> masks;
  engine.getMasks(masks);
  result.coverage.create(masks.front().size());
  result.coverage = 0;
  for (std::size_t i = 0; i < result.frames.size(); ++i) {
    result.frames[i].usable = cv::countNonZero(masks[i]) / static_cast<double>(masks[i].total());
    cv::Mat_<unsigned short> used;
    cv::Mat(masks[i] != 0).convertTo(used, CV_16U, 1. / 255);
    result.coverage += used;
  }
}

template <class Engine>
Reconstruction run(const std::vector<Frame>& window, const Parameters& parameters) {
  const cv::Size size = window.front().pixels.size();
  Engine engine(size.width, size.height, engineWindow, factor);
  configure(engine, parameters);
  Reconstruction result;
  result.reference = parameters.referenceSlot;
  addFrames(engine, window, parameters, result);
  float status = 0;
  try {
    status = engine.computeSR(result.image);
  } catch (const Exception& refusal) {
    result.image.release();
    result.reason = refusal.what();
    return result;
  }
  result.verdict = verdictOf<Engine>(status);
  if (result.verdict == Verdict::registrationFailed) {
    result.image.release();
    return result;
  }
  if (result.verdict == Verdict::good) {
    result.srFactor = status;
  }
  takeShifts(engine, result);
  // The vector engine hands out a part of its masks only.
  if constexpr (!std::is_same_v<Engine, VectorEngine>) {
    takeMasks(engine, result);
  }
  result.figures = {{"psf_sigma", static_cast<double>(engine.getPsfSigma())},
                    {"tv_weight", static_cast<double>(engine.getWeightTV())},
                    {"iterations", engine.getMaxCGIters()},
                    {"relative_residue", static_cast<double>(engine.getRelativeResidue())}};
  return result;
}

/// All values moved by a constant; flags stay flags.
cv::Mat_<float> raised(const cv::Mat_<float>& pixels, float amount) {
  cv::Mat_<float> result(pixels.size());
  std::transform(pixels.begin(), pixels.end(), result.begin(),
                 [amount](const float& value) { return vision::isFlagged(value) ? value : value + amount; });
  return result;
}

}  // namespace

Reconstruction reconstructGlobally(const std::vector<Frame>& window, const Parameters& parameters) {
  if (parameters.counts && holdUnsignedCounts(window)) {  // engines know signed ones
    std::vector<Frame> lowered = window;
    for (Frame& frame : lowered) {
      frame.pixels = raised(frame.pixels, -unsignedMiddle);
    }
    Reconstruction result = reconstructGlobally(lowered, parameters);
    result.image = raised(result.image, unsignedMiddle);
    return result;
  }
  const DivertedDescriptor divertedReport(STDOUT_FILENO, DivertedDescriptor::nowhere);
  switch (parameters.engine) {
    case Engine::vector:
      return run<VectorEngine>(window, parameters);
    case Engine::reference:
      return run<ReferenceEngine>(window, parameters);
    case Engine::production:
      break;
  }
  return parameters.registration == RegistrationMethod::phase ? run<PhaseEngine>(window, parameters)
                                                              : run<ProductionEngine>(window, parameters);
}

}  // namespace movra::tool
