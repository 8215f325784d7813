#pragma once

#include <string>
#include <vector>

#include "tools/movra-sr/io/Frames.h"

namespace movra::tool {

/// An exposure of a uniform surface: counts, and the temperature that they show, one number or an image with one value
/// per pixel.
struct ExposureArgument {
  std::string countsFile;
  std::string temperatureFile;  ///< empty: the number counts
  float temperature = 0;
};

/// Reads "FILE=TEMPERATURE" or "FILE=IMAGE". Throws Failure for anything else.
ExposureArgument parseExposure(const std::string& text);

/// Turns raw frames, 16-bit counts, into temperatures by a cold and a warm exposure, pixel by pixel. Pixels whose counts
/// do not differ between the exposures, or are no 16-bit counts in the frame or an exposure, become NaN, which engines
/// take for bad pixels. Counts are signed unless more than a few defects lie above 32767. Returns whether they were taken
/// as unsigned ones. Throws Failure for an exposure that cannot be used and for images of which most values are no counts.
bool toTemperatures(std::vector<Frame>& frames, const ExposureArgument& low, const ExposureArgument& high);

}  // namespace movra::tool
