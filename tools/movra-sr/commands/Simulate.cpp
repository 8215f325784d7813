#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <system_error>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/OutputFile.h"
#include "tools/movra-sr/io/Tiff.h"
#include "tools/movra-sr/simulation/Burst.h"
#include "tools/movra-sr/simulation/Scene.h"

namespace movra::tool {

namespace {

struct SimulateOptions {
  std::string folder;
  std::string sceneFile;
  std::string size;
  CameraModel camera;
  bool replace = false;
};

constexpr int smallestSide = 16;
constexpr int largestSide = 2048;

cv::Size parseSize(const std::string& text) {
  int width = 0;
  int height = 0;
  char rest = 0;
  if (std::sscanf(text.c_str(), "%dx%d%c", &width, &height, &rest) != 2 || std::min(width, height) < smallestSide ||
      std::max(width, height) > largestSide) {
    throw Failure(ExitCode::usage, "--size " + text + ": give WIDTHxHEIGHT of a frame, each " +
                                       std::to_string(smallestSide) + " to " + std::to_string(largestSide));
  }
  return {width, height};
}

/// The scene, and the frame size that goes with it when the scene is given and the size is not.
cv::Mat_<float> makeScene(const SimulateOptions& options, CameraModel& camera) {
  if (!options.size.empty()) {
    camera.frameSize = parseSize(options.size);
  }
  const int margin = sceneMargin(camera);
  if (options.sceneFile.empty()) {
    return drawScene({2 * (camera.frameSize.width + margin), 2 * (camera.frameSize.height + margin)}, camera.seed);
  }

  const Frame scene = readImage(options.sceneFile);
  const cv::Size largest((scene.pixels.cols - 2 * margin) / 2, (scene.pixels.rows - 2 * margin) / 2);
  if (options.size.empty()) {
    camera.frameSize = largest;
  }
  if (camera.frameSize.width > largest.width || camera.frameSize.height > largest.height ||
      std::min(largest.width, largest.height) < smallestSide) {
    throw Failure(ExitCode::badInput, scene.name + ": is " + std::to_string(scene.pixels.cols) + "x" +
                                          std::to_string(scene.pixels.rows) +
                                          ", too small a scene; a frame needs twice its size and " +
                                          std::to_string(margin) + " pixels more on each side");
  }
  return scene.pixels;
}

std::string frameName(int index) {
  char name[32];
  std::snprintf(name, sizeof name, "frame_%02d.tiff", index);
  return name;
}

std::string shiftTable(const SimulatedBurst& burst) {
  std::ostringstream table;
  table.imbue(std::locale::classic());
  table << "frame,dx,dy\n";
  for (std::size_t i = 0; i < burst.shifts.size(); ++i) {
    table << frameName(static_cast<int>(i)) << ',' << burst.shifts[i].x << ',' << burst.shifts[i].y << '\n';
  }
  return table.str();
}

ExitCode simulate(const SimulateOptions& options) {
  CameraModel camera = options.camera;
  const cv::Mat_<float> scene = makeScene(options, camera);
  const SimulatedBurst burst = simulateBurst(scene, camera);

  const std::filesystem::path folder = options.folder;
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) {
    throw Failure(ExitCode::outputNotWritten, "cannot create the folder " + folder.string() + ": " + error.message());
  }

  std::vector<std::unique_ptr<OutputFile>> files;
  const auto newFile = [&](const std::string& name) -> OutputFile& {
    files.push_back(std::make_unique<OutputFile>(folder / name, options.replace));
    if (!options.sceneFile.empty()) {
      files.back()->keepApartFrom({options.sceneFile});
    }
    return *files.back();
  };
  const std::string unit = options.sceneFile.empty() ? "deg C" : "as in the scene";
  for (std::size_t i = 0; i < burst.frames.size(); ++i) {
    writeTiff(newFile(frameName(static_cast<int>(i))), burst.frames[i], "simulated frame; unit: " + unit);
  }
  writeTiff(newFile("truth.tiff"), burst.truth, "simulated truth; unit: " + unit);
  newFile("shifts.csv").write(shiftTable(burst));
  for (const auto& file : files) {
    file->commit();
  }
  const std::filesystem::path next = folder / frameName(camera.frameCount);
  if (std::filesystem::exists(next, error)) {
    std::cerr << "movra-sr: " << next.string() << " is of another burst; do not mix them\n";
  }

  std::cout << "burst: " << burst.frames.size() << " frames of " << camera.frameSize.width << "x"
            << camera.frameSize.height << ", " << (folder / frameName(0)).string() << " and following\n"
            << "reference: " << frameName(burst.reference) << '\n'
            << "shifts: " << (folder / "shifts.csv").string() << '\n'
            << "truth: " << (folder / "truth.tiff").string() << ", on the grid of the reference frame\n";
  return ExitCode::done;
}

}  // namespace

void addSimulate(CLI::App& application, Action& chosen) {
  auto options = std::make_shared<SimulateOptions>();
  CameraModel& camera = options->camera;
  CLI::App* command = application.add_subcommand(
      "simulate", "Make a burst with known shifts, noise and truth: frame_00.tiff .., truth.tiff, shifts.csv");
  command->add_option("-o,--output", options->folder, "Folder to write into; created when missing")->required();
  command->add_option("--scene", options->sceneFile,
                      "Image to look at, one value per high-resolution pixel (default: a scene drawn in deg C)");
  command->add_option("--size", options->size,
                      "Size of a frame as WIDTHxHEIGHT (default: 320x240, or as large as the scene allows)");
  command->add_option("--frames", camera.frameCount, "Number of frames")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  command->add_option("--noise", camera.noise, "Standard deviation of the noise, in the scene's unit (deg C)")
      ->check(finiteWithin(0, 1e6))
      ->capture_default_str();
  command
      ->add_option("--psf-sigma", camera.psfSigma,
                   "Standard deviation of the point-spread function, high-resolution pixels")
      ->check(finiteWithin(0.01, 10))
      ->capture_default_str();
  command->add_option("--max-shift", camera.maxShift, "Largest displacement per axis, low-resolution pixels")
      ->check(finiteWithin(0, 50))
      ->capture_default_str();
  command->add_option("--seed", camera.seed, "Number that decides scene, shifts and noise")->capture_default_str();
  command->add_flag("--force", options->replace, "Replace files that exist");
  command->footer(
      "A row of shifts.csv is the position in the frame minus the position in the reference, in "
      "low-resolution "
      "pixels,\nx to the right and y downward: with dx = 0.5 the scene lies half a pixel further right.");
  command->callback([options, &chosen] { chosen = [options] { return simulate(*options); }; });
}

}  // namespace movra::tool
