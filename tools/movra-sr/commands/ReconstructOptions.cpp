#include "tools/movra-sr/commands/ReconstructOptions.h"

#include <filesystem>
#include <system_error>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/ImageWriter.h"

namespace movra::tool {

namespace {

/// Frames of a longer recording among which those that are used are chosen.
constexpr int mostCandidates = 60;

[[noreturn]] void refuse(const std::string& reason) {
  throw Failure(ExitCode::usage, reason);
}

void checkFiles(const ReconstructOptions& options) {
  if (options.output.empty()) {
    refuse("--output is required: name the result's file (see movra-sr reconstruct --help)");
  }
  requireWritable(options.output, {options.sixteenBits ? Sample::uint16 : Sample::float32, {}});
  if (!options.preview.empty()) {
    requireExtension(options.preview, {".png"}, "the preview is a PNG file; name it .png");
  }
  if (!options.report.empty()) {
    requireExtension(options.report, {".html", ".htm"}, "the report is an HTML file; name it .html");
  }
  if (options.preview.empty() && options.report.empty() && (options.look.range || options.look.isPaletteGiven)) {
    refuse("--range and --palette are for pictures; give --preview or --report too");
  }
  if (!options.coverage.empty()) {
    requireWritable(options.coverage, {});
  }
}

/// Settles which method it is, and refuses what belongs to the other one.
void settleMotion(ReconstructOptions& options) {
  Parameters& parameters = options.parameters;
  const bool ofEngines =
      parameters.engine != Engine::production || parameters.registration || parameters.registrationError;
  const bool ofTiles = options.preset || options.threads || options.frameCount || options.reference == "best" ||
                       options.switchesOff || !options.savedBadPixels.empty() || !options.pattern.empty() ||
                       !options.shifts.empty();
  parameters.motion = options.motion.value_or(ofEngines ? Motion::global : Motion::local);
  if (parameters.motion == Motion::local && ofEngines) {
    refuse("--engine, --registration and --registration-error belong to --motion global");
  }
  if (parameters.motion == Motion::global && ofTiles) {
    refuse(
        "--preset, --threads, --frames, --reference best, --save-bad-pixels, --pattern, --shifts and --no-... belong "
        "to --motion local");
  }
  parameters.preset = options.preset.value_or(Preset::standard);
  parameters.threads = options.threads.value_or(0);
  parameters.frames = options.frameCount.value_or(0);
}

}  // namespace

bool ReconstructOptions::listGrows() const {
  if (badPixels.empty() || savedBadPixels.empty()) {
    return false;
  }
  std::error_code missing;
  return badPixels == savedBadPixels || std::filesystem::equivalent(badPixels, savedBadPixels, missing);
}

void settleMethod(ReconstructOptions& options) {
  if (options.inputs.empty()) {
    refuse("FRAMES is required: name the files, or their folder (see --help)");
  }
  if (options.scale.gain == 0) {
    refuse("--gain 0 would wipe out the frames");
  }
  settleMotion(options);
  const Parameters& parameters = options.parameters;
  if (options.isRaw() && (parameters.counts || options.scale.gain != 1 || options.scale.offset != 0)) {
    refuse("--nuc-low and --nuc-high make temperatures of counts; leave --counts, --gain and --offset out");
  }
  if (parameters.engine == Engine::vector && parameters.registration == RegistrationMethod::phase) {
    refuse("--engine vector has no other registration than corners");
  }
  if (parameters.engine == Engine::reference && parameters.registration == RegistrationMethod::corners) {
    refuse("--engine reference has no other registration than phase");
  }
  if (parameters.engine == Engine::vector && !options.badPixels.empty()) {
    refuse("--engine vector repairs no pixels, so it cannot honour --bad-pixels");
  }
}

WindowChoice choiceFor(const ReconstructOptions& options) {
  WindowChoice choice;
  const bool global = options.parameters.motion == Motion::global;
  choice.first = options.first;
  choice.least = global ? engineWindow : 1;
  if (global) {
    choice.most = engineWindow;
  } else if (options.frameCount == ReconstructOptions::allFrames) {
    choice.most = 0;
  } else {
    choice.most = options.first && options.frameCount ? *options.frameCount : mostCandidates;
  }
  choice.leaveOut = !global;
  choice.counts = options.isRaw() || options.parameters.counts;
  return choice;
}

int referenceFor(const Window& window, const ReconstructOptions& options) {
  return options.reference == "best" ? Parameters::bestReference : findReference(window, options.reference);
}

ImageEncoding encodingFor(const ReconstructOptions& options, const Frame& frame, const cv::Mat_<float>& image) {
  if (!options.sixteenBits) {
    return {};
  }
  const bool isPng = lowerCaseExtension(options.output) == ".png";
  const bool inFrames = frame.sample == Sample::uint16 || (frame.sample == Sample::int16 && !isPng);
  return inFrames && !options.isRaw() ? ImageEncoding{frame.sample, options.scale} : sixteenBitsFor(image);
}

void checkOptions(ReconstructOptions& options) {
  options.sixteenBits |= lowerCaseExtension(options.output) == ".png";
  settleMethod(options);
  checkFiles(options);
  if (!options.savedBadPixels.empty() && !options.parameters.findBadPixels) {
    refuse("--no-bad-pixel-search finds no pixels for --save-bad-pixels");
  }
  if (!options.pattern.empty() && !options.parameters.correctPattern) {
    refuse("--no-pattern leaves the pattern in, which --pattern takes out");
  }
  if (!options.pattern.empty()) {
    requireExtension(options.pattern, {".tif", ".tiff"}, "a pattern is kept as a .tiff file");
  }
  if (options.listGrows() && !std::filesystem::exists(options.badPixels)) {
    options.badPixels.clear();  // the camera's first burst
  }
  if (options.parameters.engine == Engine::vector && !options.coverage.empty()) {
    refuse("--engine vector does not tell which pixels it used, so it cannot write --coverage");
  }
}

}  // namespace movra::tool
