#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/io/Frames.h"

namespace movra::tool {

constexpr int windowSize = 5;  ///< frames per reconstruction

enum class Engine {
  production,
  vector,     ///< 4-lane vector operations; repairs no bad pixels
  reference,  ///< plain operators; shifts by phase correlation
};

/// How the whole-pixel shifts are found.
enum class RegistrationMethod { corners, phase };

/// What a user can set. An empty value stands for the one that the C interface sets.
struct Parameters {
  Engine engine = Engine::production;
  int referenceIndex = 3;             ///< counted back from the newest frame of the window
  std::optional<std::string> camera;  ///< description of camera and lens
  std::optional<float> psfSigma;
  std::optional<float> weightTV;
  std::optional<int> iterations;
  std::optional<float> relativeResidue;
  std::optional<float> registrationError;
  std::optional<RegistrationMethod> registration;
  bool counts = false;  ///< frames hold raw sensor values, not temperatures

  /// Whether the C interface has a way to set all that is set.
  bool fitCInterface() const {
    return engine == Engine::production && registration != RegistrationMethod::phase && !psfSigma && !weightTV &&
           !iterations && !relativeResidue && !registrationError && !counts;
  }

  /// Slot of the reference frame in a full window, oldest first.
  int referenceSlot() const { return windowSize - 1 - referenceIndex; }
};

enum class Verdict {
  good,
  tooFewUsablePixels,    ///< half or more of a frame's pixels could not be registered; there is an image
  displacementTooLarge,  ///< a frame lies further off than a tenth of the height; there is an image
  registrationFailed,    ///< no image
};

/// What came out of a window.
struct Reconstruction {
  Verdict verdict = Verdict::registrationFailed;
  std::string reason;                          ///< why the registration failed, when the library told
  float srFactor = 0;                          ///< 0.75 .. 2, of a good one only
  cv::Mat_<float> image;                       ///< twice the frame size; empty when the registration failed
  std::vector<std::string> patched;            ///< frames in which a bad pixel took a fallback value
  std::vector<std::string> faint;              ///< frames whose values span less than the library asks for
  std::vector<cv::Point2f> shifts;             ///< per frame, low-resolution pixels
  std::vector<cv::Mat_<unsigned char>> masks;  ///< per frame, 1 where its registration is trusted;
                                               ///< none from the vector engine
};

/// Reconstructs from a window of five frames of one size, oldest first.
///
/// The image comes from the C interface when that can set all parameters, else from the engine. The C
/// interface tells neither the sr factor nor every outcome, so these, the shifts and the masks always come
/// from an engine, which then stops after one iteration: none of them depends on the minimisation. Standard
/// output is diverted meanwhile, to standard error if `showReport`. Throws Failure for a frame with too many
/// bad pixels.
Reconstruction reconstruct(const std::vector<Frame>& window, const Parameters& parameters, bool showReport);

/// The image of a reconstruction through the C interface alone; the parameters must fit it.
cv::Mat_<float> reconstructThroughCInterface(const std::vector<Frame>& window, const Parameters& parameters);

/// The whole reconstruction through the engine alone.
Reconstruction reconstructThroughEngine(const std::vector<Frame>& window, const Parameters& parameters);

}  // namespace movra::tool
