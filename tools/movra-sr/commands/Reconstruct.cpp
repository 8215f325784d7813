#include <algorithm>
#include <iostream>
#include <memory>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/BadPixelFile.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/io/OutputFile.h"
#include "tools/movra-sr/reconstruction/Calibration.h"
#include "tools/movra-sr/reconstruction/Reconstruction.h"
#include "tools/movra-sr/reconstruction/Window.h"
#include "tools/movra-sr/report/Preview.h"
#include "tools/movra-sr/report/Quality.h"
#include "tools/movra-sr/report/Words.h"
#include "vision/superresolution/CameraModels.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

namespace movra::tool {

namespace {

struct ReconstructOptions {
  std::vector<std::string> inputs;
  std::string output;
  std::string preview;
  std::string badPixels;
  std::string nucLow;
  std::string nucHigh;
  std::string unit;
  Scale scale;
  Parameters parameters;
  std::optional<int> first;
  bool replace = false;
  bool verbose = false;
};

void requireExtension(const std::string& path, std::initializer_list<const char*> extensions, const char* what) {
  if (std::find(extensions.begin(), extensions.end(), lowerCaseExtension(path)) == extensions.end()) {
    throw Failure(ExitCode::usage, path + ": " + what);
  }
}

void checkOptions(const ReconstructOptions& options) {
  requireExtension(options.output, {".tif", ".tiff"}, "the result is a TIFF file; name it .tiff");
  if (!options.preview.empty()) {
    requireExtension(options.preview, {".png"}, "the preview is a PNG file; name it .png");
  }
  if (options.scale.gain == 0) {
    throw Failure(ExitCode::usage, "--gain 0 would wipe out the frames");
  }
  const Parameters& parameters = options.parameters;
  if (!options.nucLow.empty() && (parameters.counts || options.scale.gain != 1 || options.scale.offset != 0)) {
    throw Failure(ExitCode::usage,
                  "--nuc-low and --nuc-high make temperatures of counts; leave --counts, --gain and --offset out");
  }
  if (parameters.engine == Engine::vector && parameters.registration == RegistrationMethod::phase) {
    throw Failure(ExitCode::usage, "--engine vector has no other registration than corners");
  }
  if (parameters.engine == Engine::reference && parameters.registration == RegistrationMethod::corners) {
    throw Failure(ExitCode::usage, "--engine reference has no other registration than phase");
  }
  if (parameters.engine == Engine::vector && !options.badPixels.empty()) {
    throw Failure(ExitCode::usage, "--engine vector repairs no pixels, so it cannot honour --bad-pixels");
  }
}

/// The width of the point-spread function of a camera and lens such as "m07 FOV 15".
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
                                       "\"m07 FOV 15\"; for other cameras give --psf-sigma");
  }
  return *sigma;
}

std::string describe(const ReconstructOptions& options, const Window& window, const Reconstruction& result) {
  return "super-resolution of " + window.frames.front().name + " .. " + window.frames.back().name +
         "; reference: " + window.frames[static_cast<std::size_t>(options.parameters.referenceSlot())].name +
         "; status: " + statusInWords(result, window) + "; sr factor: " + srFactorInWords(result) +
         (options.unit.empty() ? "" : "; unit: " + options.unit);
}

void writeFiles(const ReconstructOptions& options, const Window& window, const Reconstruction& result,
                OutputFile& image, OutputFile* preview) {
  writeImage(image, result.image, {describe(options, window, result)});
  if (preview) {
    const auto slot = static_cast<std::size_t>(options.parameters.referenceSlot());
    writePng(*preview, drawPreview(enlargeBicubically(window.frames[slot].pixels), result.image, options.unit));
  }
  OutputFile::commitAll(preview ? std::vector<OutputFile*>{&image, preview} : std::vector<OutputFile*>{&image});
}

/// Copies of the frames in which the listed pixels are marked.
std::vector<Frame> withMarks(const std::vector<Frame>& frames, const BadPixelFile& badPixels) {
  std::vector<Frame> marked;
  for (const Frame& frame : frames) {
    marked.push_back({frame.pixels.clone(), frame.name});
    markBadPixels(badPixels, marked.back());
  }
  return marked;
}

ExitCode reconstructBurst(const ReconstructOptions& options) {
  checkOptions(options);
  OutputFile image(options.output, options.replace);
  const auto preview =
      options.preview.empty() ? nullptr : std::make_unique<OutputFile>(options.preview, options.replace);
  const bool raw = !options.nucLow.empty();
  const ExposureArgument low = raw ? parseExposure(options.nucLow) : ExposureArgument{};
  const ExposureArgument high = raw ? parseExposure(options.nucHigh) : ExposureArgument{};
  std::vector<std::string> inputs = expandFolders(options.inputs);
  for (const std::string& file :
       {low.countsFile, low.temperatureFile, high.countsFile, high.temperatureFile, options.badPixels})
    if (!file.empty()) {
      inputs.push_back(file);
    }
  image.keepApartFrom(inputs);
  if (preview) {
    preview->keepApartFrom(inputs);
  }

  const BadPixelFile badPixels = options.badPixels.empty() ? BadPixelFile{} : readBadPixels(options.badPixels);
  Window window = readWindow(options.inputs, options.scale, options.first, raw || options.parameters.counts);
  if (raw) {
    toTemperatures(window.frames, low, high);
  }
  const Reconstruction result = options.badPixels.empty()
                                    ? reconstruct(window.frames, options.parameters)
                                    : reconstruct(withMarks(window.frames, badPixels), options.parameters);

  if (options.verbose) {
    std::cerr << frameTable(result, window, options.parameters);
  }
  for (const std::string& name : result.patched) {
    std::cerr << "movra-sr: " << name << ": a bad pixel had no good neighbours and took a fallback value\n";
  }
  if (const std::string text = remark(result); !text.empty()) {
    std::cerr << "movra-sr: " << text << '\n';
  }
  const auto slot = static_cast<std::size_t>(options.parameters.referenceSlot());
  std::cout << "frames: " << window.frames.front().name << " .. " << window.frames.back().name << " (" << windowSize
            << " of " << window.given << ")\n"
            << "reference: " << window.frames[slot].name << '\n';
  if (!options.badPixels.empty()) {
    std::cout << "bad pixels: " << badPixels.list.rows << " marked by " << badPixels.name << '\n';
  }
  std::cout << "status: " << statusInWords(result, window) << '\n' << "sr factor: " << srFactorInWords(result) << '\n';
  if (result.verdict == Verdict::registrationFailed) {
    throw Failure(ExitCode::degraded, "nothing written: " + statusInWords(result, window));
  }
  if (!cv::checkRange(result.image)) {
    throw Failure(ExitCode::degraded, "nothing written: the image has values that are not finite; check the frames");
  }

  writeFiles(options, window, result, image, preview.get());
  std::cout << "image: " << options.output << ", " << result.image.cols << "x" << result.image.rows << '\n';
  if (preview) {
    std::cout << "preview: " << options.preview << '\n';
  }
  return result.verdict == Verdict::good && result.faint.empty() ? ExitCode::done : ExitCode::degraded;
}

void addParameters(CLI::App& command, Parameters& parameters) {
  const std::string method = "Method";
  command
      .add_option("--reference", parameters.referenceIndex,
                  "Frame whose grid the image gets, counted back from the newest of the five (0)")
      ->check(CLI::Range(0, windowSize - 1))
      ->capture_default_str()
      ->group(method);
  command
      .add_option_function<std::string>(
          "--engine",
          [&parameters](const std::string& name) {
            parameters.engine = name == "vector"      ? Engine::vector
                                : name == "reference" ? Engine::reference
                                                      : Engine::production;
          },
          "Engine: production; vector, which is made of 4-lane vector operations and takes bad pixels as "
          "they "
          "are; or reference, plain loops with phase correlation [production]")
      ->check(CLI::IsMember({"production", "vector", "reference"}))
      ->group(method);
  CLI::Option* camera =
      command
          .add_option_function<std::string>(
              "--camera", [&parameters](const std::string& text) { parameters.psfSigma = psfSigmaOf(text); },
              "Camera and lens, such as \"m07 FOV 15\"; sets the PSF width")
          ->group(method);
  command
      .add_option("--psf-sigma", parameters.psfSigma,
                  "Standard deviation of the point-spread function, high-resolution pixels [0.683]")
      ->check(finiteWithin(0.01, 100))
      ->excludes(camera)
      ->group(method);
  command
      .add_option("--tv-weight", parameters.weightTV, "Weight of the data against smoothness; larger is sharper [400]")
      ->check(finiteWithin(1, 1e30))
      ->group(method);
  command.add_option("--iterations", parameters.iterations, "Largest number of solver iterations [8]")
      ->check(CLI::Range(1, 10000))
      ->group(method);
  command
      .add_option("--relative-residue", parameters.relativeResidue,
                  "Relative residue at which the solver stops [0.007]")
      ->check(finiteWithin(1.1e-6, 1e30))
      ->group(method);
  command
      .add_option_function<std::string>(
          "--registration",
          [&parameters](const std::string& name) {
            parameters.registration = name == "phase" ? RegistrationMethod::phase : RegistrationMethod::corners;
          },
          "How shifts are found: corners (tracked) or phase (phase correlation)")
      ->check(CLI::IsMember({"corners", "phase"}))
      ->default_str("corners")
      ->group(method);
  command
      .add_option("--registration-error", parameters.registrationError,
                  "Alignment residue up to which a pixel is used, at most 1 [0.0001]")
      ->check(finiteWithin(1e-12, 1))
      ->group(method);
}

}  // namespace

void addReconstruct(CLI::App& application, Action& chosen) {
  auto options = std::make_shared<ReconstructOptions>();
  CLI::App* command =
      application.add_subcommand("reconstruct", "Make one image of twice the size from five frames of a burst");
  command
      ->add_option("FRAMES", options->inputs,
                   "Frames in order: PNG or TIFF files of one channel (8 or 16-bit integer, 32-bit float), multi-page "
                   "TIFF files, or folders, whose numbered files are taken in natural order")
      ->required();
  command->add_option("-o,--output", options->output, "Result, a 32-bit float TIFF")->required();
  command->add_option("--preview", options->preview, "False-colour PNG beside the enlarged reference frame");
  command->add_option("--bad-pixels", options->badPixels,
                      "List of the sensor's bad pixels as movra-sr bad-pixels makes it; they are left out of "
                      "every frame");
  command->add_option("--first", options->first, "Number of the first of the five frames, from 1 [the last five]")
      ->check(CLI::Range(1, 1000000));
  command->add_option("--gain", options->scale.gain, "Temperature = gain * value + offset")
      ->check(finite())
      ->capture_default_str();
  command->add_option("--offset", options->scale.offset, "See --gain")->check(finite())->capture_default_str();
  command->add_flag("--counts", options->parameters.counts, "The values are sensor counts (-32768 .. 32767)");
  CLI::Option* low = command->add_option("--nuc-low", options->nucLow,
                                         "FILE=TEMPERATURE or FILE=IMAGE: counts of a cold uniform surface "
                                         "and the temperature that they show, one for "
                                         "all pixels or an image; with --nuc-high, turns frames of 16-bit "
                                         "counts into temperatures, pixel by pixel");
  CLI::Option* high =
      command->add_option("--nuc-high", options->nucHigh, "The same of a warm surface; see --nuc-low")->needs(low);
  low->needs(high);
  command->add_option("--unit", options->unit, "Unit of the values, for the preview and the result's description");
  command->add_flag("--force", options->replace, "Replace files that exist");
  command->add_flag("--verbose", options->verbose, "Shift and usable share of each frame, on standard error");
  addParameters(*command, options->parameters);
  command->footer(
      "More than five frames: all are read and checked, the last five (or those from --first on) are used.\n"
      "The sr factor tells how well the frames cover the image: 2 when every pixel is backed by all five,\n"
      "1 when by one only.");
  command->callback([options, &chosen] { chosen = [options] { return reconstructBurst(*options); }; });
}

}  // namespace movra::tool
