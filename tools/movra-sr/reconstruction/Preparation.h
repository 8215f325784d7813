#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/io/BadPixelFile.h"
#include "tools/movra-sr/reconstruction/Calibration.h"

namespace movra::tool {

/// What is done to frames before they are reconstructed: counts become temperatures, listed pixels are marked.
class Preparation {
 public:
  /// Arguments as the command line gives them; empty ones ask for nothing. Throws Failure.
  Preparation(const std::string& nucLow, const std::string& nucHigh, const std::string& badPixelFile);

  /// The files that are read for it.
  const std::vector<std::string>& files() const { return inputs; }

  const BadPixelFile& badPixelList() const { return badPixels; }

  /// Number of bad pixels in the list that are marked, if there is one.
  std::optional<int> listedPixels() const;

  /// Returns what the user should know about it, or nothing.
  std::string calibrate(std::vector<Frame>& frames) const;

  /// Marks pixels in copies, so that the frames given before keep theirs.
  void mark(std::vector<Frame>& frames) const;

 private:
  bool calibrates;
  bool marks;
  ExposureArgument low;
  ExposureArgument high;
  BadPixelFile badPixels;
  std::vector<std::string> inputs;
};

}  // namespace movra::tool
