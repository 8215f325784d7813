#pragma once

#include <optional>
#include <vector>

#include "vision/superresolution/AffineMotion.h"

namespace movra::tool {

constexpr int engineWindow = 5;  ///< frames that an engine takes

/// Whether each part of the image has its own shift in each frame, or each frame has one.
enum class Motion { local, global };

enum class Preset { fast, standard, best };

enum class Engine {
  production,
  vector,     ///< 4-lane vector operations; repairs no bad pixels
  reference,  ///< plain operators; shifts by phase correlation
};

/// How the whole-pixel shifts are found.
enum class RegistrationMethod { corners, phase };

/// What a user can set of the method. An empty value leaves the library's own.
struct Parameters {
  static constexpr int bestReference = -1;

  Motion motion = Motion::local;
  int referenceSlot = 0;  ///< in the window, oldest first; or bestReference, with local motion
  bool counts = false;    ///< frames hold raw sensor values, not temperatures
  std::optional<float> psfSigma;
  bool isPsfOfTable = false;  ///< psfSigma is that of a known camera
  std::optional<float> weightTV;
  std::optional<int> iterations;
  std::optional<float> relativeResidue;

  // Global motion only.
  Engine engine = Engine::production;
  std::optional<RegistrationMethod> registration;
  std::optional<float> registrationError;

  // Local motion only.
  Preset preset = Preset::standard;
  int frames = 0;   ///< most that take part, of more the best are chosen; 0: 12, or 20 of noisy ones; -1: all
  int threads = 0;  ///< 0: as many as the processor runs at once
  bool correctOffset = true;
  bool findBadPixels = true;
  bool correctPattern = true;
  bool wantsImage = true;                     ///< else registration alone
  std::vector<float> pattern;                 ///< known beforehand, a value per pixel; or empty
  std::vector<vision::AffineMotion> motions;  ///< known beforehand, one per frame; empty: estimated
};

}  // namespace movra::tool
