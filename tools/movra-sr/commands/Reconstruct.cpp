#include <algorithm>
#include <memory>

#include "tools/movra-sr/commands/CameraFiles.h"
#include "tools/movra-sr/commands/Cameras.h"
#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/commands/Help.h"
#include "tools/movra-sr/commands/OutputSet.h"
#include "tools/movra-sr/commands/ReconstructOptions.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/reconstruction/KnownMotion.h"
#include "tools/movra-sr/reconstruction/Preparation.h"
#include "tools/movra-sr/reconstruction/Reconstruct.h"
#include "tools/movra-sr/reconstruction/Window.h"
#include "tools/movra-sr/report/Description.h"
#include "tools/movra-sr/report/HtmlReport.h"
#include "tools/movra-sr/report/Quality.h"
#include "tools/movra-sr/report/Words.h"

namespace movra::tool {

namespace {

/// Frames up to which all are used by default, so that the reference has a fixed place.
constexpr std::size_t usualFrames = 12;

/// Levels that jump, which global motion suffers from.
void noteJumps(const Window& window, int reference, Console& console) {
  constexpr double tolerable = 0.2;  // of the reference's standard deviation
  const cv::Mat_<float>& base = window.frames[static_cast<std::size_t>(reference)].pixels;
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(base, mean, deviation, base == base);
  for (const Frame& frame : window.frames) {
    const double jump = medianOf(frame.pixels) - medianOf(base);
    if (std::abs(jump) > tolerable * deviation[0]) {
      char text[200];
      std::snprintf(text, sizeof text,
                    ": its level is %.3g %s the reference's (a correction by the shutter, or another scale?)",
                    std::abs(jump), jump > 0 ? "above" : "below");
      console.note(frame.name + text);
    }
  }
}

std::string describeInFile(const ReconstructOptions& options, const Reconstruction& result) {
  std::string text = "super-resolution of " + result.frames.front().name + " .. " + result.frames.back().name +
                     "; reference: " + result.frames[static_cast<std::size_t>(result.reference)].name +
                     "; status: " + statusInWords(result) + "; sr factor: " + srFactorInWords(result);
  if (!options.unit.empty()) {
    text += "; unit: " + options.unit;
  }
  for (const auto& [key, value] : result.figures) {
    text += "; " + key + ": " + Json(value).dump();
  }
  if (options.scale.gain != 1 || options.scale.offset != 0) {
    text += "; gain: " + Json(options.scale.gain).dump() + "; offset: " + Json(options.scale.offset).dump();
  }
  return text;
}

/// The inside of the image, when the border is to be cropped; else the whole.
cv::Rect keptPart(const ReconstructOptions& options, const Reconstruction& result) {
  return options.cropBorder ? seenByAll(result) : cv::Rect({0, 0}, result.image.size());
}

/// The files that are asked for.
struct Outputs {
  OutputSet files;
  OutputFile* image;
  OutputFile* preview;
  OutputFile* coverage;
  OutputFile* report;

  Outputs(const ReconstructOptions& options, const std::vector<std::string>& inputs)
      : files(options.replace, inputs),
        image(files.open("image", options.output)),
        preview(files.open("preview", options.preview)),
        coverage(files.open("coverage", options.coverage)),
        report(files.open("report", options.report)) {}
};

void write(const ReconstructOptions& options, const Outputs& outputs, const Reconstruction& result,
           const Frame& reference, const Console& console) {
  const cv::Rect part = keptPart(options, result);
  const cv::Mat_<float> image = result.image(part).clone();
  writeImage(*outputs.image, image, {describeInFile(options, result)}, encodingFor(options, reference, image));
  const cv::Mat_<float> bicubic = enlargeBicubically(reference.pixels)(part).clone();
  if (outputs.preview != nullptr) {
    writePng(*outputs.preview, drawPreview(bicubic, image, options.unit, options.look));
  }
  if (outputs.report != nullptr) {
    outputs.report->write(
        drawReport({result, bicubic, image, console.document, console.commandLine, options.unit, options.look}));
  }
  if (outputs.coverage != nullptr) {
    cv::Mat_<float> counts;
    result.coverage.convertTo(counts, CV_32F);
    writeImage(*outputs.coverage, counts, {"number of frames that back each pixel of the reference frame"});
  }
}

void tellResult(const ReconstructOptions& options, const Window& window, const Reconstruction& result,
                const std::optional<Statistics>& statistics, Console& console) {
  console.document.update(describe(result, statistics));
  console.document["given_frames"] = window.given;
  if (options.verbose) {
    console.tell(frameTable(result));
  }
  for (const std::string& remark : remarks(result)) {
    console.note(remark);
  }
  console.say("frames: " + window.frames.front().name + " .. " + window.frames.back().name + " (" +
              std::to_string(window.frames.size()) + " of " + std::to_string(window.given) + ")");
  console.say("reference: " + result.frames[static_cast<std::size_t>(result.reference)].name);
}

/// Every file that is read, but for those that grow.
std::vector<std::string> inputsOf(const ReconstructOptions& options, const Preparation& preparation,
                                  const FrameSource& source) {
  std::vector<std::string> inputs = preparation.files();
  if (options.listGrows()) {
    inputs.erase(std::remove(inputs.begin(), inputs.end(), options.badPixels), inputs.end());
  }
  if (!options.shifts.empty()) {
    inputs.push_back(options.shifts);
  }
  inputs.insert(inputs.end(), source.files().begin(), source.files().end());
  return inputs;
}

ExitCode reconstructBurst(ReconstructOptions options, Console& console) {
  if (options.listCameras) {
    listCameras(console);
    return ExitCode::done;
  }
  checkOptions(options);
  const Preparation preparation(options.nucLow, options.nucHigh, options.badPixels);
  const std::vector<KnownMotion> motions =
      options.shifts.empty() ? std::vector<KnownMotion>() : readMotions(options.shifts);
  CameraFiles camera(options);
  FrameSource source(options.inputs, {options.scale, options.raw});
  Outputs outputs(options, inputsOf(options, preparation, source));
  camera.open(outputs.files);
  Window window = readWindow(source, choiceFor(options));
  camera.requireSizeOf(window.frames.front(), preparation);
  if (!motions.empty()) {
    dropUnaligned(window, motions, options.shifts);
  }
  for (const std::string& note : window.notes) {
    console.note(note);
  }
  if (const std::string kind = preparation.calibrate(window.frames); !kind.empty()) {
    console.say(kind);
  }
  Parameters parameters = options.parameters;
  if (options.reference.empty() && parameters.motion == Motion::local && window.frames.size() > usualFrames) {
    options.reference = "best";
  }
  parameters.referenceSlot = referenceFor(window, options);
  parameters.pattern = camera.pattern();
  if (!motions.empty()) {
    parameters.motions = motionsOf(window.frames, motions, options.shifts);
  }
  if (parameters.motion == Motion::global) {
    noteJumps(window, parameters.referenceSlot, console);
  }
  std::vector<Frame> frames = window.frames;
  preparation.mark(frames);
  const Reconstruction result = reconstruct(frames, parameters);

  const auto statistics = result.image.empty() ? std::nullopt : statisticsOf(result);
  tellResult(options, window, result, statistics, console);
  if (const auto listed = preparation.listedPixels()) {
    console.say("bad pixels: " + std::to_string(*listed) + " marked by " + options.badPixels);
    console.document["bad_pixels"]["listed"] = *listed;
  }
  const std::string status = statusInWords(result);
  if (result.verdict == Verdict::registrationFailed) {
    throw Failure(ExitCode::degraded, "nothing written: " + status);
  }
  console.say("status: " + status);
  console.say("sr factor: " + srFactorInWords(result));
  if (statistics) {
    console.say("inside: " + statisticsInWords(*statistics, options.unit));
  }
  if (!cv::checkRange(result.image)) {
    throw Failure(ExitCode::degraded, "nothing written: the image has values that are not finite; check the frames");
  }
  if (options.cropBorder && !statistics) {
    throw Failure(ExitCode::degraded,
                  "nothing written: no part of the image is seen by all frames, so that "
                  "--crop-border leaves nothing");
  }
  camera.write(result, preparation.badPixelList(), outputs.files, console);
  if (console.strict && !isGood(result)) {
    throw Failure(ExitCode::degraded, "nothing written, because of --strict: " + status);
  }
  console.endIfStrict();
  write(options, outputs, result, window.frames[static_cast<std::size_t>(result.reference)], console);
  console.say("size: " + sizeText(keptPart(options, result).size()));
  outputs.files.commit(console);
  return isGood(result) ? ExitCode::done : ExitCode::degraded;
}

}  // namespace

void addReconstruct(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<ReconstructOptions>();
  CLI::App* command =
      application.add_subcommand("reconstruct", "Make one image of twice the size from the frames of a burst");
  addInputOptions(*command, *options);
  command->add_option("--unit", options->unit, "Unit of the values, for pictures and descriptions")->group("Input");
  addCameraOptions(*command, *options);
  const char* const output = "Output";
  command
      ->add_option("-o,--output", options->output, "Result (required): .tiff, .npy or .csv of floats, .png of 16 bits")
      ->type_name("FILE")
      ->group(output);
  command->add_option("--preview", options->preview, "False-colour PNG beside the enlarged reference frame")
      ->type_name("FILE")
      ->group(output);
  command->add_option("--coverage", options->coverage, "Image: the number of frames that back each pixel of a frame")
      ->type_name("FILE")
      ->group(output);
  command->add_flag("--16-bit", options->sixteenBits, "16-bit integers, in the frames' encoding if they have one")
      ->group(output);
  command->add_flag("--crop-border", options->cropBorder, "Leave out the border that not all frames have seen")
      ->group(output);
  command->add_option("--report", options->report, "HTML page: before and after, motion, coverage, figures")
      ->type_name("FILE")
      ->group(output);
  addLookOptions(*command, options->look);
  command->add_flag("--force", options->replace, "Replace files that exist")->group(output);
  command->add_flag("--verbose", options->verbose, "The motion and usable share of each frame, on standard error")
      ->group(output);
  addConsoleOptions(*command, console);
  addMethodOptions(*command, *options);
  addHelpAll(*command);
  command->footer(
      "Example:\n"
      "  movra-sr reconstruct FOLDER -o sharp.tiff --preview sharp.png\n\n"
      "The sr factor tells how well the frames cover the image: 2 when every pixel is backed by five frames\n"
      "or more, 1 when by one only.");
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return reconstructBurst(*options, console); }; });
}

}  // namespace movra::tool
