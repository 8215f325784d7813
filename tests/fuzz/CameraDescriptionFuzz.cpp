// The parser of camera descriptions: any text.
#include <locale>
#include <sstream>
#include <string>

#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/CameraModels.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

void movra::fuzz::feed(FuzzInput& input) {
  const std::string text = input.ConsumeRemainingBytesAsString();
  std::string camera = "untouched";
  int lens = -7;
  const bool hasLabel = text.find("FOV") != std::string::npos;
  if (SuperResolution_getCameraAndLensType(text, camera, lens)) {
    require(movra::vision::psfSigmaOfCamera(camera, lens).has_value(), "a camera that is recognised has a width");
    require(hasLabel && lens != -1, "recognised is what holds FOV and a number");
  }
  if (camera != "untouched" && hasLabel) {
    int number = -1;
    std::istringstream rest(text.substr(text.find("FOV") + 3));
    rest.imbue(std::locale::classic());
    rest >> number;
    require(lens == number, "the lens is the number that a stream reads");
  }
  require(hasLabel || lens == -7, "without FOV the lens stays");
  require(SuperResolution_setCameraAndLensType(-1, text.c_str()) == 0, "the result is 0, always");
}
