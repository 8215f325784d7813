#include "tools/movra-sr/reconstruction/Reconstruction.h"

#include <unistd.h>

#include <array>
#include <type_traits>

#include "movra/Exception.h"
#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/DivertedDescriptor.h"
#include "tools/movra-sr/reconstruction/ReferenceEngine.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatNeon.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

namespace movra::tool {

namespace {

using ProductionEngine = vision::SrFloat<vision::SrFloatRegistration2>;
using PhaseEngine = vision::SrFloat<vision::SrFloatRegistration1>;
using VectorEngine = vision::SrFloatNeon<vision::SrFloatNeonRegistration>;

constexpr float factor = 2;

[[noreturn]] void refuseFrame(const Frame& frame, const std::string& reason) {
  throw Failure(ExitCode::badInput, frame.name + ": " + reason + " Repair its bad pixels or leave the frame out.");
}

/// A context of the C interface, released at the end.
class Context {
 public:
  explicit Context(cv::Size frameSize) : handle(SuperResolution_init(frameSize.width, frameSize.height)) {
    if (handle < 0) {
      throw Failure(ExitCode::internalFault, lastError());
    }
  }
  ~Context() { SuperResolution_release(handle); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  static std::string lastError() {
    std::array<char, 512> text{};
    SuperResolution_getErrorMessage(text.data(), static_cast<int>(text.size()) - 1);
    return text.data();
  }

  const int handle;
};

template <class Engine>
void configure(Engine& engine, const Parameters& parameters) {
  engine.setReferenceIndex(parameters.referenceIndex);
  engine.setWeightTV(parameters.weightTV.value_or(400.f));
  engine.setRegError(parameters.registrationError.value_or(1e-4F));
  engine.setRelativeResidue(parameters.relativeResidue.value_or(0.007f));
  if (parameters.psfSigma) {
    engine.setPsfSigma(*parameters.psfSigma);
  }
  if (parameters.iterations) {
    engine.setMaxCGIters(*parameters.iterations);
  }
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

template <class Engine>
void addFrames(Engine& engine, const std::vector<Frame>& window, Reconstruction& result) {
  for (const Frame& frame : window) {
    if (valueSpan(frame.pixels) < static_cast<double>(engine.getMinStructureThreshold())) {
      result.faint.push_back(frame.name);
    }
    if (std::is_same_v<Engine, VectorEngine> && !cv::checkRange(frame.pixels)) {
      throw Failure(ExitCode::badInput, frame.name +
                                            ": has pixels that are not finite numbers, and --engine vector "
                                            "repairs none; use --engine production");
    }
    try {
      if (engine.addFrame(frame.pixels) < 0) {
        result.patched.push_back(frame.name);
      }
    } catch (const Exception& refusal) {
      refuseFrame(frame, refusal.what());
    }
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
Reconstruction run(const std::vector<Frame>& window, const Parameters& parameters) {
  const cv::Size size = window.front().pixels.size();
  Engine engine(size.width, size.height, windowSize, factor);
  configure(engine, parameters);
  Reconstruction result;
  addFrames(engine, window, result);
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
  engine.getCompleteShifts(result.shifts);
  // The vector engine hands out a part of its masks only.
  if constexpr (!std::is_same_v<Engine, VectorEngine>) {
    engine.getMasks(result.masks);
  }
  return result;
}

}  // namespace

cv::Mat_<float> reconstructThroughCInterface(const std::vector<Frame>& window, const Parameters& parameters) {
  const cv::Size size = window.front().pixels.size();
  const Context context(size);
  SuperResolution_setReferenceFrame(context.handle, parameters.referenceIndex);
  if (parameters.camera) {
    SuperResolution_setCameraAndLensType(context.handle, parameters.camera->c_str());
  }
  for (const Frame& frame : window) {
    if (SuperResolution_addImage(context.handle, frame.pixels[0]) == SUPERRESOLUTION_ERROR) {
      throw Failure(ExitCode::badInput, frame.name + ": " + Context::lastError());
    }
  }
  cv::Mat_<float> image(2 * size.height, 2 * size.width);
  if (SuperResolution_getSuperresolutionImage(context.handle, image[0]) != SUPERRESOLUTION_SUCCESS) {
    throw Failure(ExitCode::internalFault, Context::lastError());
  }
  return image;
}

Reconstruction reconstructThroughEngine(const std::vector<Frame>& window, const Parameters& parameters) {
  if (parameters.engine == Engine::vector) {
    return run<VectorEngine>(window, parameters);
  }
  if (parameters.engine == Engine::reference) {
    return run<ReferenceEngine>(window, parameters);
  }
  return parameters.registration == RegistrationMethod::phase ? run<PhaseEngine>(window, parameters)
                                                              : run<ProductionEngine>(window, parameters);
}

Reconstruction reconstruct(const std::vector<Frame>& window, const Parameters& parameters, bool showReport) {
  const DivertedDescriptor divertedReport(STDOUT_FILENO, showReport ? STDERR_FILENO : DivertedDescriptor::nowhere);
  if (!parameters.fitCInterface()) {
    return reconstructThroughEngine(window, parameters);
  }
  Parameters brief = parameters;
  brief.iterations = 1;
  Reconstruction result = reconstructThroughEngine(window, brief);
  if (result.verdict != Verdict::registrationFailed) {
    result.image = reconstructThroughCInterface(window, parameters);
  }
  return result;
}

}  // namespace movra::tool
