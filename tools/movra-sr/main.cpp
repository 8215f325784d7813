#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <climits>
#include <exception>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <string>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/commands/Help.h"
#include "tools/movra-sr/io/OutputFile.h"

namespace {

using movra::tool::Console;
using movra::tool::ExitCode;

/// Tells the error in one line, and in the document if there is one.
int fail(Console& console, ExitCode code, const std::string& message) {
  movra::tool::printOnError(message);
  console.document["error"] = message;
  console.finish(static_cast<int>(code));
  return static_cast<int>(code);
}

/// Opens /dev/null for each standard stream that the caller has closed. Otherwise an output file could get its number and
/// receive our messages.
void openStandardStreams() {
  int descriptor = 0;
  do {
    descriptor = open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) {
    close(descriptor);
  }
}

/// Lets freed memory be used again instead of giving it back to the system, which hands it out anew page by page: a tenth
/// of the time of a small burst.
void keepFreedMemory() {
  mallopt(M_MMAP_THRESHOLD, 32 << 20);  // the most that the C library takes
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
}

/// Where the help is that a wrong command line asks for.
std::string hintOf(const CLI::App& application) {
  const auto chosen = application.get_subcommands();
  return " (see movra-sr " + (chosen.empty() ? "" : chosen.front()->get_name() + ' ') + "--help)";
}

int run(int argc, char** argv, Console& console) {
  CLI::App application{"Multi-frame super-resolution of thermal images", "movra-sr"};
  application.formatter(std::make_shared<movra::tool::HelpFormatter>());
  application.set_version_flag("--version", "movra-sr " MOVRA_SR_VERSION);
  application.require_subcommand(1);
  application.footer("Example:\n  movra-sr reconstruct FOLDER -o sharp.tiff --preview sharp.png");

  movra::tool::Action chosen;
  addReconstruct(application, console, chosen);
  addStream(application, console, chosen);
  addBatch(application, console, chosen);
  addRegister(application, console, chosen);
  addBadPixels(application, console, chosen);
  addMeasurePsf(application, console, chosen);
  addSimulate(application, console, chosen);
  addCompare(application, console, chosen);
  addInfo(application, console, chosen);
  try {
    application.parse(argc, argv);
  } catch (const CLI::ParseError& outcome) {
    if (argc > 1 && outcome.get_exit_code() != 0 && application.get_subcommands().empty()) {
      return fail(console, ExitCode::usage, argv[1] + std::string(": no such command") + hintOf(application));
    }
    if (outcome.get_exit_code() != 0) {
      return fail(console, ExitCode::usage, outcome.what() + hintOf(application));
    }
    console.json = false;
    application.exit(outcome);  // --help, --version
    chosen = [] { return ExitCode::done; };
  }
  if (!application.get_subcommands().empty()) {
    console.document["command"] = application.get_subcommands().front()->get_name();
  }
  console.document["version"] = MOVRA_SR_VERSION;

  ExitCode code = chosen();
  if (code == ExitCode::done && console.strict && console.hasNotes()) {
    code = ExitCode::degraded;
  }
  console.finish(static_cast<int>(code));
  std::cout.flush();
  if (!std::cout) {
    movra::tool::printOnError("standard output cannot be written");
    return static_cast<int>(ExitCode::outputNotWritten);
  }
  return static_cast<int>(code);
}

int runGuarded(int argc, char** argv, Console& console) {
  const char* const shortOfMemory = "not enough memory for images of this size";
  try {
    return run(argc, argv, console);
  } catch (const movra::tool::Failure& failure) {
    return fail(console, failure.code, failure.what());
  } catch (const std::bad_alloc&) {
    return fail(console, ExitCode::badInput, shortOfMemory);
  } catch (const cv::Exception& fault) {
    const bool isShort = fault.code == cv::Error::StsNoMem;
    return fail(console, isShort ? ExitCode::badInput : ExitCode::internalFault,
                isShort ? shortOfMemory : fault.what());
  } catch (const std::exception& fault) {
    return fail(console, ExitCode::internalFault, fault.what());
  } catch (const char* fault) {  // the setters of the engines
    return fail(console, ExitCode::internalFault, fault);
  }
}

}  // namespace

int main(int argc, char** argv) {
  openStandardStreams();
  keepFreedMemory();
  movra::tool::OutputFile::removeUnfinishedOnSignals();
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  Console console;
  for (int i = 0; i < argc; ++i) {
    console.commandLine += (i == 0 ? "movra-sr" : std::string(" ") + argv[i]);
  }
  return runGuarded(argc, argv, console);
}
