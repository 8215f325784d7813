#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/io/FrameSource.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/reconstruction/Parameters.h"
#include "tools/movra-sr/reconstruction/Window.h"
#include "tools/movra-sr/report/Preview.h"

namespace movra::tool {

/// What the command line of a reconstruction says.
struct ReconstructOptions {
  static constexpr int allFrames = -1;

  std::vector<std::string> inputs;
  std::string output;
  std::string preview;
  std::string coverage;
  std::string report;
  std::string badPixels;
  std::string savedBadPixels;
  std::string pattern;
  std::string shifts;
  std::string nucLow;
  std::string nucHigh;
  std::string unit;
  std::string reference;
  Scale scale;
  std::optional<RawLayout> raw;
  Parameters parameters;
  Look look;
  std::optional<int> first;
  std::optional<int> frameCount;  ///< or allFrames
  std::optional<Motion> motion;
  std::optional<Preset> preset;
  std::optional<int> threads;
  bool switchesOff = false;  ///< a correction of local motion
  bool cropBorder = false;
  bool sixteenBits = false;
  bool replace = false;
  bool verbose = false;
  bool listCameras = false;

  /// Whether the list of bad pixels is to be written to the file from which it is read.
  bool listGrows() const;

  /// Whether counts become temperatures by two exposures.
  bool isRaw() const { return !nucLow.empty(); }
};

/// Options that all commands share which reconstruct.
void addInputOptions(CLI::App& command, ReconstructOptions& options);
void addMethodOptions(CLI::App& command, ReconstructOptions& options);
/// What a camera's files and known motions add to a single reconstruction.
void addCameraOptions(CLI::App& command, ReconstructOptions& options);
/// The same pattern for commands that take it out of the frames and leave its file as it is.
void addKnownPattern(CLI::App& command, ReconstructOptions& options);
void addLookOptions(CLI::App& command, Look& look);

/// Decides which method it is and takes its parameters over. Throws Failure (wrong command line) for no frames, and for
/// options of the method that contradict each other or would have no effect.
void settleMethod(ReconstructOptions& options);

/// Which frames the options ask for, and which of them is the reference.
WindowChoice choiceFor(const ReconstructOptions& options);
int referenceFor(const Window& window, const ReconstructOptions& options);

/// Integers where they are asked for or the file takes nothing else, then in the frames' encoding if they have one that
/// the file can hold.
ImageEncoding encodingFor(const ReconstructOptions& options, const Frame& frame, const cv::Mat_<float>& image);

/// settleMethod, and the same for the files. Throws Failure (wrong command line) for options that contradict each other or
/// would have no effect; settles what follows from others.
void checkOptions(ReconstructOptions& options);

}  // namespace movra::tool
