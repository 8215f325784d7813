#include "tools/movra-sr/reconstruction/Preparation.h"

namespace movra::tool {

Preparation::Preparation(const std::string& nucLow, const std::string& nucHigh, const std::string& badPixelFile)
    : calibrates(!nucLow.empty()), marks(!badPixelFile.empty()) {
  if (calibrates) {
    low = parseExposure(nucLow);
    high = parseExposure(nucHigh);
  }
  if (marks) {
    badPixels = readBadPixels(badPixelFile);
  }
  for (const std::string& file :
       {low.countsFile, low.temperatureFile, high.countsFile, high.temperatureFile, badPixelFile}) {
    if (!file.empty()) {
      inputs.push_back(file);
    }
  }
}

std::optional<int> Preparation::listedPixels() const {
  return marks ? std::optional<int>(badPixels.certainPixels()) : std::nullopt;
}

std::string Preparation::calibrate(std::vector<Frame>& frames) const {
  return calibrates && toTemperatures(frames, low, high) ? "counts: unsigned, 0 .. 65535, because they lie above 32767"
                                                         : "";
}

void Preparation::mark(std::vector<Frame>& frames) const {
  if (!marks) {
    return;
  }
  for (Frame& frame : frames) {
    frame.pixels = frame.pixels.clone();
    markBadPixels(badPixels, frame);
  }
}

}  // namespace movra::tool
