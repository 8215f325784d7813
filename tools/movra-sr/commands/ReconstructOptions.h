#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/io/FrameSource.h"
#include "tools/movra-sr/reconstruction/Parameters.h"
#include "tools/movra-sr/report/Preview.h"

namespace movra::tool {

/// What the command line of a reconstruction says.
struct ReconstructOptions {
  std::vector<std::string> inputs;
  std::string output;
  std::string preview;
  std::string coverage;
  std::string badPixels;
  std::string nucLow;
  std::string nucHigh;
  std::string unit;
  std::string reference;
  Scale scale;
  std::optional<RawLayout> raw;
  Parameters parameters;
  Look look;
  std::optional<int> first;
  bool cropBorder = false;
  bool sixteenBits = false;
  bool replace = false;
  bool verbose = false;
  bool listCameras = false;

  /// Whether counts become temperatures by two exposures.
  bool isRaw() const { return !nucLow.empty(); }
};

/// Options that all commands share which reconstruct.
void addInputOptions(CLI::App& command, ReconstructOptions& options);
void addMethodOptions(CLI::App& command, ReconstructOptions& options);
void addLookOptions(CLI::App& command, Look& look);

/// Throws Failure (wrong command line) for options that contradict each other or would have no effect; settles what follows
/// from others.
void checkOptions(ReconstructOptions& options);

}  // namespace movra::tool
