#include <cmath>
#include <fstream>
#include <functional>

#include "tools/movra-sr/commands/Cameras.h"
#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/commands/Help.h"
#include "tools/movra-sr/commands/ReconstructOptions.h"

namespace movra::tool {

namespace {

/// An option whose values have names.
template <class Value>
CLI::Option* addChoice(CLI::App& command, const char* name, std::vector<std::pair<std::string, Value>> values,
                       const std::function<void(Value)>& receive, const char* text, const char* byDefault,
                       const char* group = HelpFormatter::methodGroup) {
  std::vector<std::string> names;
  for (const auto& [word, value] : values) {
    names.push_back(word);
  }
  const auto take = [values, receive](const std::string& word) {
    for (const auto& [each, value] : values) {
      if (each == word) {
        receive(value);
      }
    }
  };
  return command.add_option_function<std::string>(name, take, text)
      ->check(CLI::IsMember(names))
      ->type_name("NAME")
      ->default_str(byDefault)
      ->group(group);
}

/// "LOW,HIGH".
void parseRange(const std::string& text, Look& look) {
  const std::size_t comma = text.find(',');
  double low = 0;
  double high = 0;
  if (comma == std::string::npos || !CLI::detail::lexical_cast(text.substr(0, comma), low) ||
      !CLI::detail::lexical_cast(text.substr(comma + 1), high) || !(low < high) || !std::isfinite(high - low)) {
    throw Failure(ExitCode::usage, "--range " + text + ": give LOW,HIGH, two numbers, the smaller one first");
  }
  look.range = ValueRange{static_cast<float>(low), static_cast<float>(high)};
}

/// "psf_sigma" of a JSON document.
float readPsfFile(const std::string& file) {
  std::ifstream stream(file);
  if (!stream) {
    throw Failure(ExitCode::badInput, file + ": cannot be read; check name and permissions");
  }
  const Json document = Json::parse(stream, nullptr, false);
  const bool holdsWidth = document.is_object() && document.contains("psf_sigma") && document["psf_sigma"].is_number();
  const double width = holdsWidth ? document["psf_sigma"].get<double>() : 0;
  if (!(width > 0 && width < 100)) {
    throw Failure(ExitCode::badInput, file + ": holds no \"psf_sigma\"; make it with movra-sr measure-psf -o");
  }
  return static_cast<float>(width);
}

}  // namespace

void addInputOptions(CLI::App& command, ReconstructOptions& options) {
  command
      .add_option("FRAMES", options.inputs,
                  "Frames in order: PNG, TIFF, PGM, NPY or CSV files, folders (numbered files in natural order), - "
                  "for standard input")
      ->type_name("FILE");
  const char* const input = "Input";
  command
      .add_option_function<std::string>(
          "--raw", [&](const std::string& text) { options.raw = parseRawLayout(text); },
          "The files are headerless 16-bit frames of this size; \",big\" for big-endian")
      ->type_name("WxH[,big]")
      ->group(input);
  command
      .add_option_function<std::string>(
          "--frames",
          [&](const std::string& text) {
            int count = ReconstructOptions::allFrames;
            if (text != "all" && (!CLI::detail::lexical_cast(text, count) || count < 1)) {
              throw Failure(ExitCode::usage, "--frames " + text + ": give a number of frames, or all");
            }
            options.frameCount = count;
          },
          "How many frames are used, a number or all; of more, those that complement each other best "
          "are chosen unless --first is given [12, or 20 of noisy ones]")
      ->type_name("NUMBER")
      ->group(input);
  command.add_option("--first", options.first, "Number of the first frame that is used, from 1 [the last ones]")
      ->check(CLI::Range(1, 1000000))
      ->group(input);
  command
      .add_option("--reference", options.reference,
                  "Frame whose grid the image gets: its file, a number that counts back from the newest, or best, "
                  "the one that the others fit best [3; best of more than 12 frames]")
      ->type_name("FRAME")
      ->group(input);
  command.add_option("--gain", options.scale.gain, "Temperature = gain * value + offset")
      ->check(finite())
      ->capture_default_str()
      ->group(input);
  command.add_option("--offset", options.scale.offset, "See --gain")
      ->check(finite())
      ->capture_default_str()
      ->group(input);
  command.add_flag("--counts", options.parameters.counts, "The values are sensor counts (-32768 .. 65535)")
      ->group(input);
  CLI::Option* const low =
      command
          .add_option("--nuc-low", options.nucLow,
                      "FILE=TEMPERATURE or FILE=IMAGE: counts of a cold uniform surface and the temperature that they "
                      "show; with --nuc-high, turns 16-bit counts into temperatures, pixel by pixel")
          ->type_name("FILE=...")
          ->group(input);
  low->needs(command.add_option("--nuc-high", options.nucHigh, "The same of a warm surface; see --nuc-low")
                 ->needs(low)
                 ->type_name("FILE=...")
                 ->group(input));
  command
      .add_option("--bad-pixels", options.badPixels,
                  "List of the sensor's bad pixels, as movra-sr bad-pixels makes it; they are left out")
      ->type_name("FILE")
      ->group(input);
}

void addCameraOptions(CLI::App& command, ReconstructOptions& options) {
  const auto add = [&](const char* name, std::string& value, const char* group, const char* text) {
    command.add_option(name, value, text)->type_name("FILE")->group(group);
  };
  add("--save-bad-pixels", options.savedBadPixels, "Input",
      "Write the list with what the burst showed; twice shown counts");
  add("--pattern", options.pattern, "Input", "Fixed pattern, .tiff: taken out, then averaged with this burst's");
  add("--shifts", options.shifts, HelpFormatter::methodGroup,
      "Motion of each frame, as movra-sr register -o writes it, .csv or .json; none is estimated then");
}

void addKnownPattern(CLI::App& command, ReconstructOptions& options) {
  command
      .add_option("--pattern", options.pattern,
                  "Fixed pattern of the camera, as movra-sr reconstruct --pattern keeps it: taken out of the frames")
      ->type_name("FILE")
      ->group("Input");
}

void addMethodOptions(CLI::App& command, ReconstructOptions& options) {
  Parameters& parameters = options.parameters;
  const char* const method = HelpFormatter::methodGroup;
  const char* const choice = "Reconstruction";
  addChoice<Motion>(
      command, "--motion", {{"local", Motion::local}, {"global", Motion::global}},
      [&](Motion motion) { options.motion = motion; },
      "local: each part of the image follows its own motion, as hands roll and scenes have depth; global: one shift "
      "per frame, five frames, by an engine",
      "local", choice);
  addChoice<Preset>(
      command, "--preset", {{"fast", Preset::fast}, {"standard", Preset::standard}, {"best", Preset::best}},
      [&](Preset preset) { options.preset = preset; },
      "fast: where frames roll, about two thirds of the time; standard; best: about twice the time, the sharpest of "
      "clean frames",
      "standard", choice);
  command.add_option("--threads", options.threads, "Threads; the image is the same for any number [all processors]")
      ->check(CLI::Range(1, 1024))
      ->group(choice);
  CLI::Option* const camera =
      command
          .add_option_function<std::string>(
              "--camera",
              [&](const std::string& text) {
                options.listCameras = text == "list";
                if (!options.listCameras) {
                  parameters.psfSigma = psfSigmaOf(text);
                  parameters.isPsfOfTable = true;
                }
              },
              "Camera and lens, such as \"m07 FOV 15\"; sets the PSF width; \"list\" names those that are known")
          ->group(method);
  command
      .add_option("--psf-sigma", parameters.psfSigma,
                  "Standard deviation of the point-spread function, high-resolution pixels [0.683]")
      ->check(finiteWithin(0.01, 100))
      ->excludes(camera)
      ->group(method);
  command
      .add_option_function<std::string>(
          "--psf-file", [&](const std::string& file) { parameters.psfSigma = readPsfFile(file); },
          "The width that movra-sr measure-psf wrote to this file")
      ->excludes(camera)
      ->excludes("--psf-sigma")
      ->type_name("FILE")
      ->group(method);
  command
      .add_option("--tv-weight", parameters.weightTV,
                  "Weight of the data against smoothness; larger is sharper [from the noise; 400 with global]")
      ->check(finiteWithin(1, 1e30))
      ->group(method);
  command
      .add_option("--iterations", parameters.iterations,
                  "Largest number of solver iterations [from the preset; 8 with global]")
      ->check(CLI::Range(1, 10000))
      ->group(method);
  command
      .add_option("--relative-residue", parameters.relativeResidue,
                  "Relative residue at which the solver stops [from the preset; 0.007 with global]")
      ->check(finiteWithin(1.1e-6, 1e30))
      ->group(method);
  const auto switchOff = [&](const char* name, bool& correction, const char* text) {
    command
        .add_flag_callback(
            name,
            [&options, &correction] {
              correction = false;
              options.switchesOff = true;
            },
            text)
        ->group(method);
  };
  switchOff("--no-offset", parameters.correctOffset, "Leave the differences of level between frames as they are");
  switchOff("--no-bad-pixel-search", parameters.findBadPixels,
            "Mask only pixels that are listed, flagged or not finite");
  switchOff("--no-pattern", parameters.correctPattern, "Leave the fixed pattern of the sensor as it is");
  addChoice<Engine>(
      command, "--engine",
      {{"production", Engine::production}, {"vector", Engine::vector}, {"reference", Engine::reference}},
      [&](Engine engine) { parameters.engine = engine; },
      "Engine: production; vector, which is made of 4-lane vector operations and takes bad pixels as they are; or "
      "reference, plain loops with phase correlation. This and the next two mean --motion global",
      "production");
  addChoice<RegistrationMethod>(
      command, "--registration", {{"corners", RegistrationMethod::corners}, {"phase", RegistrationMethod::phase}},
      [&](RegistrationMethod registration) { parameters.registration = registration; },
      "How shifts are found: corners (tracked) or phase (phase correlation)", "corners");
  command
      .add_option("--registration-error", parameters.registrationError,
                  "Alignment residue up to which a pixel is used, at most 1 [0.0001]")
      ->check(finiteWithin(1e-12, 1))
      ->group(method);
}

void addLookOptions(CLI::App& command, Look& look) {
  const char* const output = "Output";
  std::vector<std::string> names;
  for (const Palette& palette : palettes()) {
    names.emplace_back(palette.name);
  }
  command
      .add_option_function<std::string>(
          "--palette",
          [&look](const std::string& name) {
            look.palette = name;
            look.isPaletteGiven = true;
          },
          "Colours of pictures: " + CLI::detail::join(names, ", "))
      ->check(CLI::IsMember(names))
      ->type_name("NAME")
      ->default_str(look.palette)
      ->group(output);
  command
      .add_option_function<std::string>(
          "--range", [&look](const std::string& text) { parseRange(text, look); },
          "Values that the colours span, for series; else all but the outermost 0.5 % of the pixels")
      ->type_name("LOW,HIGH")
      ->group(output);
}

}  // namespace movra::tool
