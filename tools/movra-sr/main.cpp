#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <string>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/OutputFile.h"

namespace {

using movra::tool::ExitCode;

constexpr const char* exitCodes =
    "Exit codes:\n"
    "  0   done\n"
    "  1   ran, but the result was refused or is degraded\n"
    "  2   wrong command line\n"
    "  3   unreadable or unfit input\n"
    "  4   output not written\n"
    "  70  fault in the program\n";

/// One line on standard error, whatever the message holds.
int report(ExitCode code, std::string message) {
  std::replace(message.begin(), message.end(), '\n', ' ');
  std::cerr << "movra-sr: " << message << '\n';
  return static_cast<int>(code);
}

int reportShortMemory() {
  return report(ExitCode::badInput, "not enough memory for images of this size");
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

int run(int argc, char** argv) {
  CLI::App application{"Multi-frame super-resolution of thermal images", "movra-sr"};
  application.set_version_flag("--version", "movra-sr " MOVRA_SR_VERSION);
  application.require_subcommand(1);
  application.footer(exitCodes);

  movra::tool::Action chosen;
  addReconstruct(application, chosen);
  addSimulate(application, chosen);
  addCompare(application, chosen);
  addBadPixels(application, chosen);
  try {
    application.parse(argc, argv);
  } catch (const CLI::ParseError& outcome) {
    if (argc > 1 && outcome.get_exit_code() != 0 && application.get_subcommands().empty()) {
      return report(ExitCode::usage, argv[1] + std::string(": no such command (see movra-sr --help)"));
    }
    if (outcome.get_exit_code() != 0) {
      return report(ExitCode::usage, std::string(outcome.what()) + " (see movra-sr --help)");
    }
    application.exit(outcome);  // --help, --version
    chosen = [] { return ExitCode::done; };
  }

  const ExitCode code = chosen();
  std::cout.flush();
  if (!std::cout) {
    return report(ExitCode::outputNotWritten, "standard output cannot be written");
  }
  return static_cast<int>(code);
}

}  // namespace

int main(int argc, char** argv) {
  openStandardStreams();
  movra::tool::OutputFile::removeUnfinishedOnSignals();
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  try {
    return run(argc, argv);
  } catch (const movra::tool::Failure& failure) {
    return report(failure.code, failure.what());
  } catch (const std::bad_alloc&) {
    return reportShortMemory();
  } catch (const cv::Exception& fault) {
    return fault.code == cv::Error::StsNoMem ? reportShortMemory() : report(ExitCode::internalFault, fault.what());
  } catch (const std::exception& fault) {
    return report(ExitCode::internalFault, fault.what());
  } catch (const char* fault) {  // the setters of the engines
    return report(ExitCode::internalFault, fault);
  }
}
