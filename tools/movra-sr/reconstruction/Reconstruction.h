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

/// What a user can set. An empty value leaves the engine's own.
struct Parameters {
  Engine engine = Engine::production;
  int referenceIndex = 3;  ///< counted back from the newest frame of the window
  std::optional<float> psfSigma;
  std::optional<float> weightTV;
  std::optional<int> iterations;
  std::optional<float> relativeResidue;
  std::optional<float> registrationError;
  std::optional<RegistrationMethod> registration;
  bool counts = false;  ///< frames hold raw sensor values, not temperatures

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

/// Reconstructs from a window of five frames of one size, oldest first. Throws Failure for a frame with too many bad
/// pixels. The engine's timing report goes nowhere.
Reconstruction reconstruct(const std::vector<Frame>& window, const Parameters& parameters);

}  // namespace movra::tool
