#pragma once

#include <stdexcept>
#include <string>

namespace movra::tool {

/// What the process returns; listed in the help text.
enum class ExitCode {
  done = 0,
  degraded = 1,  ///< ran, but the result was refused or is degraded
  usage = 2,     ///< the command line is wrong
  badInput = 3,  ///< an input is unreadable or unfit
  outputNotWritten = 4,
  internalFault = 70,
};

/// A failure told to the user in one line: what is wrong, where, and what to do about it.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode exitCode, const std::string& message) : std::runtime_error(message), code(exitCode) {}

  const ExitCode code;
};

}  // namespace movra::tool
