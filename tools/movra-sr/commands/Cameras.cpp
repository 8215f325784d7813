#include "tools/movra-sr/commands/Cameras.h"

#include <cstdio>
#include <optional>

#include "tools/movra-sr/Outcome.h"
#include "vision/superresolution/CameraModels.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

namespace movra::tool {

float psfSigmaOf(const std::string& description) {
  std::string camera;
  int lens = 0;
  std::optional<float> sigma;
  if (SuperResolution_getCameraAndLensType(description, camera, lens)) {
    sigma = vision::psfSigmaOfCamera(camera, lens);
  }
  if (!sigma) {
    throw Failure(ExitCode::usage, "--camera \"" + description +
                                       "\" is not known; it takes a key m01 .. m08 and FOV with a number, such as "
                                       "\"m07 FOV 15\" (--camera list names them all); for other cameras give "
                                       "--psf-sigma");
  }
  return *sigma;
}

void listCameras(Console& console) {
  console.say("cameras (--camera \"KEY FOV DEGREES\") and the PSF width that they stand for, high-resolution pixels:");
  for (const vision::CameraModel& model : vision::cameraModels) {
    char line[120];
    std::snprintf(line, sizeof line, "  %s  %.3f, with a field of view above %d degrees %.3f", model.key,
                  static_cast<double>(model.sigma), vision::widestNormalLens,
                  static_cast<double>(model.sigmaOfWideLens));
    console.say(line);
    console.document["cameras"].push_back(
        {{"key", model.key}, {"psf_sigma", model.sigma}, {"psf_sigma_wide", model.sigmaOfWideLens}});
  }
}

}  // namespace movra::tool
