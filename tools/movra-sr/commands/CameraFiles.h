#pragma once

#include <string>
#include <vector>

#include "tools/movra-sr/commands/OutputSet.h"
#include "tools/movra-sr/commands/ReconstructOptions.h"
#include "tools/movra-sr/reconstruction/Preparation.h"
#include "tools/movra-sr/reconstruction/Reconstruction.h"
#include "vision/superresolution/FixedPattern.h"

namespace movra::tool {

/// The list of bad pixels and the fixed pattern of a camera, which grow from burst to burst.
class CameraFiles {
 public:
  /// Reads the pattern. Throws Failure for what is none.
  explicit CameraFiles(const ReconstructOptions& options);

  /// Opens the files that are to be written.
  void open(OutputSet& files);

  /// Throws Failure for a list or a pattern of another frame size.
  void requireSizeOf(const Frame& frame, const Preparation& preparation) const;

  /// Throws Failure for a pattern of another frame size.
  void requirePatternOf(const Frame& frame) const;

  /// What is known beforehand, a value per pixel; or nothing.
  std::vector<float> pattern() const { return known.mean(); }

  /// Writes what was known with what the burst tells of the sensor.
  void write(const Reconstruction& result, const BadPixelFile& listed, OutputSet& files, Console& console) const;

 private:
  void writeBadPixels(const Reconstruction& result, const BadPixelFile& listed, Console& console) const;

  std::string listFile;
  std::string patternFile;
  bool listGrows;
  std::string kind;  // of values
  vision::PatternAverage known;
  OutputFile* listOutput = nullptr;
  OutputFile* patternOutput = nullptr;
};

/// The pattern that the options name, for frames of this size; nothing if they name none. Throws Failure.
std::vector<float> knownPatternFor(const Frame& frame, const ReconstructOptions& options);

}  // namespace movra::tool
