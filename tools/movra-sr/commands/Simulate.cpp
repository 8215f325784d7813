#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/BadPixelFile.h"
#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/io/OutputFile.h"
#include "tools/movra-sr/simulation/Burst.h"
#include "tools/movra-sr/simulation/Scene.h"

namespace movra::tool {

namespace {

struct SimulateOptions {
  std::string folder;
  std::string sceneFile;
  std::string size;
  SimulatedCamera camera;
  bool replace = false;
};

constexpr int smallestSimulatedSide = 16;
constexpr int largestSide = 2048;

cv::Size parseSize(const std::string& text) {
  int width = 0;
  int height = 0;
  char rest = 0;
  if (std::sscanf(text.c_str(), "%dx%d%c", &width, &height, &rest) != 2 ||
      std::min(width, height) < smallestSimulatedSide || std::max(width, height) > largestSide) {
    throw Failure(ExitCode::usage, "--size " + text + ": give WIDTHxHEIGHT of a frame, each " +
                                       std::to_string(smallestSimulatedSide) + " to " + std::to_string(largestSide));
  }
  return {width, height};
}

/// The scene, and the frame size that goes with it when the scene is given and the size is not.
cv::Mat_<float> makeScene(const SimulateOptions& options, SimulatedCamera& camera) {
  if (!options.size.empty()) {
    camera.frameSize = parseSize(options.size);
  }
  const int margin = sceneMargin(camera);
  if (options.sceneFile.empty()) {
    return drawScene({2 * (camera.frameSize.width + margin), 2 * (camera.frameSize.height + margin)}, camera.seed);
  }

  const Frame scene = readImage(options.sceneFile);
  if (!cv::checkRange(scene.pixels)) {
    throw Failure(ExitCode::badInput, scene.name + ": has pixels that are not finite numbers; repair or crop them");
  }
  const cv::Size largest((scene.pixels.cols - 2 * margin) / 2, (scene.pixels.rows - 2 * margin) / 2);
  if (options.size.empty()) {
    camera.frameSize = largest;
  }
  if (camera.frameSize.width > largest.width || camera.frameSize.height > largest.height ||
      std::min(largest.width, largest.height) < smallestSimulatedSide) {
    throw Failure(ExitCode::badInput, scene.name + ": is " + sizeText(scene.pixels.size()) +
                                          ", too small a scene; a frame needs twice its size and " +
                                          std::to_string(margin) + " pixels more on each side");
  }
  return scene.pixels;
}

void checkFaults(const SimulatedCamera& camera) {
  if (camera.faults.stuck + camera.faults.defects > camera.frameSize.area() / 4) {
    throw Failure(ExitCode::usage, "--stuck and --defects: at most a quarter of the frame's " +
                                       std::to_string(camera.frameSize.area()) + " pixels");
  }
}

std::vector<std::string> frameNames(int count) {
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "frame_%02d.tiff", i);
    names.emplace_back(name);
  }
  return names;
}

/// The list as movra-sr reconstruct --bad-pixels takes it.
std::string listOf(const std::vector<Defect>& defects) {
  std::string text = "x,y\n";
  for (const Defect& defect : defects) {
    text += std::to_string(defect.pixel.x) + ',' + std::to_string(defect.pixel.y) + '\n';
  }
  return text;
}

void createFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) {
    throw Failure(ExitCode::outputNotWritten, "cannot create the folder " + folder.string() + ": " + error.message());
  }
}

void writeBurst(const SimulateOptions& options, const SimulatedBurst& burst, const SimulatedCamera& camera,
                const std::vector<std::string>& names) {
  const std::filesystem::path folder = options.folder;
  createFolder(folder);
  std::vector<std::unique_ptr<OutputFile>> files;
  const auto newFile = [&](const std::string& name) -> OutputFile& {
    files.push_back(std::make_unique<OutputFile>(folder / name, options.replace));
    if (!options.sceneFile.empty()) {
      files.back()->keepApartFrom({options.sceneFile});
    }
    return *files.back();
  };
  const std::string unit = options.sceneFile.empty() ? "deg C" : "as in the scene";
  for (std::size_t i = 0; i < names.size(); ++i) {
    writeImage(newFile(names[i]), burst.frames[i], {"simulated frame; unit: " + unit, true});
  }
  writeImage(newFile("truth.tiff"), burst.truth, {"simulated truth; unit: " + unit, true});
  newFile("shifts.csv").write(shiftsAsCsv(burst, names));
  newFile("burst.json").write(describeBurst(burst, camera, names).dump(2) + '\n');
  if (!burst.defects.empty()) {
    newFile("bad-pixels.csv").write(listOf(burst.defects));
  }
  for (const auto& file : files) {
    file->commit();
  }
}

ExitCode simulate(const SimulateOptions& options, Console& console) {
  SimulatedCamera camera = options.camera;
  const cv::Mat_<float> scene = makeScene(options, camera);
  checkFaults(camera);
  const SimulatedBurst burst = simulateBurst(scene, camera);
  const std::vector<std::string> names = frameNames(camera.frameCount);
  writeBurst(options, burst, camera, names);

  const std::filesystem::path folder = options.folder;
  const std::filesystem::path next = folder / frameNames(camera.frameCount + 1).back();
  std::error_code error;
  if (std::filesystem::exists(next, error)) {
    console.note(next.string() + " is of another burst; do not mix them");
  }
  const auto tell = [&](const char* key, const char* words, const std::string& file, const std::string& more = {}) {
    console.say(words + (": " + (folder / file).string()) + more);
    console.document["files"][key] = (folder / file).string();
  };
  console.say("burst: " + std::to_string(names.size()) + " frames of " + sizeText(camera.frameSize) + ", " +
              (folder / names.front()).string() + " and following");
  console.say("reference: " + names[static_cast<std::size_t>(burst.reference)]);
  for (const std::string& name : names) {
    console.document["files"]["frames"].push_back((folder / name).string());
  }
  console.document["burst"] = describeBurst(burst, camera, names);
  tell("shifts", "shifts", "shifts.csv");
  tell("burst", "motion and faults", "burst.json");
  if (!burst.defects.empty()) {
    tell("bad_pixels", "bad pixels", "bad-pixels.csv", ", " + std::to_string(burst.defects.size()));
  }
  tell("truth", "truth", "truth.tiff", ", on the grid of the reference frame");
  return ExitCode::done;
}

}  // namespace

void addSimulate(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<SimulateOptions>();
  SimulatedCamera& camera = options->camera;
  CLI::App* command = application.add_subcommand(
      "simulate", "Make a burst of known truth: frame_00.tiff .., truth.tiff, shifts.csv, burst.json");
  const auto number = [&](const char* group, const char* name, auto& value, const char* text, double low, double high) {
    command->add_option(name, value, text)->check(finiteWithin(low, high))->capture_default_str()->group(group);
  };
  const auto count = [&](const char* group, const char* name, int& value, const char* text, int low, int high) {
    command->add_option(name, value, text)->check(CLI::Range(low, high))->capture_default_str()->group(group);
  };

  command->add_option("-o,--output", options->folder, "Folder to write into; created when missing")
      ->required()
      ->type_name("FOLDER");
  command
      ->add_option("--scene", options->sceneFile,
                   "Picture to look at, one value per high-resolution pixel [a scene drawn in deg C]")
      ->type_name("FILE");
  command
      ->add_option("--size", options->size, "Size of a frame, WIDTHxHEIGHT [320x240, or all that the picture allows]")
      ->type_name("SIZE");
  count("Options", "--frames", camera.frameCount, "Number of frames", 1, 1000);
  command->add_option("--seed", camera.seed, "Number that decides scene, motion and noise")->capture_default_str();
  number("Options", "--psf-sigma", camera.psfSigma, "Blur of optics and pixel area together, high-resolution pixels",
         0.578, 10);
  command->add_flag("--force", options->replace, "Replace files that exist");

  const char* const motion = "Motion (pixels are those of a frame)";
  number(motion, "--max-shift", camera.motion.maxShift, "Largest shift per axis, pixels", 0, 50);
  number(motion, "--roll", camera.motion.roll, "Turn of the frames, right and left in turn, degrees", 0, 45);
  number(motion, "--zoom", camera.motion.zoom, "Two frames enlarged, two shrunk in turn, percent", 0, 20);
  number(motion, "--parallax", camera.motion.parallax, "A near thing moves by up to this much more, pixels", 0, 50);
  number(motion, "--shutter", camera.motion.shutter, "Rolling shutter: motion from first to last row, pixels", 0, 50);
  number(motion, "--mover", camera.motion.mover, "A warm disc moves by this from frame to frame, pixels", 0, 50);

  const char* const faults = "Faults (in the scene's unit: kelvin, or counts of a picture in counts)";
  number(faults, "--noise", camera.faults.noise, "Deviation of the noise", 0, 1e6);
  number(faults, "--drift", camera.faults.drift, "The level drifts by this from first to last frame", -1e6, 1e6);
  number(faults, "--pattern", camera.faults.pattern, "Deviation of an offset per pixel, the same in all frames", 0,
         1e6);
  number(faults, "--stripes", camera.faults.stripes, "Likewise of an offset per column", 0, 1e6);
  count(faults, "--stuck", camera.faults.stuck, "Pixels stuck at a value of the scene's range", 0, 1000000);
  count(faults, "--defects", camera.faults.defects, "Pixels stuck, off, dead and flickering, in turn", 0, 1000000);

  command->footer(
      "Example:\n"
      "  movra-sr simulate -o burst --roll 0.5 --drift 2 --stuck 20\n\n"
      "A row of shifts.csv is the position in the frame minus the position in the reference: with dx = 0.5\n"
      "the scene lies half a pixel further right, with dy = 0.5 further down. burst.json has the rest.\n"
      "The same seed gives the same scene, shifts and noise, whatever else is asked for.");
  addConsoleOptions(*command, console);
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return simulate(*options, console); }; });
}

}  // namespace movra::tool
