#include <png.h>
#include <tiffio.h>
#include <opencv2/core.hpp>
#include <thread>

#include "tools/movra-sr/commands/Cameras.h"
#include "tools/movra-sr/commands/Commands.h"
#include "vision/superresolution/LibraryInfo.h"

namespace movra::tool {

namespace {

ExitCode tellAll(Console& console) {
  const std::string tiff = TIFFGetVersion();
  const std::pair<const char*, std::string> facts[] = {{"library", vision::libraryVersion()},
                                                       {"instruction_set", vision::instructionSetInUse()},
                                                       {"opencv", cv::getVersionString()},
                                                       {"tiff", tiff.substr(0, tiff.find('\n'))},
                                                       {"png", png_get_libpng_ver(nullptr)}};
  console.say("movra-sr " MOVRA_SR_VERSION);
  const unsigned threads = std::max(1U, std::thread::hardware_concurrency());
  console.say("threads: " + std::to_string(threads));
  console.document["threads"] = threads;
  for (const auto& [key, value] : facts) {
    std::string words = key;
    std::replace(words.begin(), words.end(), '_', ' ');
    console.say(std::string(words).append(": ").append(value));
    console.document[key] = value;
  }
  listCameras(console);
  return ExitCode::done;
}

}  // namespace

void addInfo(CLI::App& application, Console& console, Action& chosen) {
  CLI::App* command = application.add_subcommand("info", "Version, instruction set, libraries and known cameras");
  addConsoleOptions(*command, console);
  command->footer("Example:\n  movra-sr info --json");
  command->callback([&] { chosen = [&] { return tellAll(console); }; });
}

}  // namespace movra::tool
