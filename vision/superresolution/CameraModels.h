#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace movra::vision {

/// A camera whose blur is known.
struct CameraModel {
  const char* key;        ///< what SuperResolution_getCameraAndLensType searches a description for
  const char* name;       ///< what it then returns
  float sigma;            ///< standard deviation of the point-spread function, high-resolution pixels
  float sigmaOfWideLens;  ///< the same with a field of view above widestNormalLens
};

/// In the order in which keys are searched.
inline constexpr std::array<CameraModel, 8> cameraModels{{
    {"m01", "cam1", 0.81f, 0.81f},
    {"m02", "cam2", 0.01f, 0.01f},
    {"m03", "cam3", 0.01f, 0.01f},
    {"m04", "cam4", 0.01f, 0.01f},
    {"m05", "cam5", 0.01f, 0.01f},
    {"m06", "cam6", 0.625f, 0.625f},
    {"m07", "cam7", 0.65f, 0.35f},
    {"m08", "cam8", 0.34f, 0.34f},
}};

inline constexpr int widestNormalLens = 22;  ///< degrees

/// Width of the point-spread function of the camera with this name, in high-resolution pixels, or nothing.
/// @param lens field of view, degrees
inline std::optional<float> psfSigmaOfCamera(std::string_view name, int lens) {
  for (const CameraModel& model : cameraModels) {
    if (name == model.name) {
      return lens > widestNormalLens ? model.sigmaOfWideLens : model.sigma;
    }
  }
  return std::nullopt;
}

}  // namespace movra::vision
