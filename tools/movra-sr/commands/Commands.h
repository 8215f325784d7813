#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

/// What the chosen subcommand will do once the whole command line has been read.
using Action = std::function<ExitCode()>;

/// Each adds its subcommand to the application; when it is given, it puts its work into `chosen`.
void addReconstruct(CLI::App& application, Action& chosen);
void addSimulate(CLI::App& application, Action& chosen);
void addCompare(CLI::App& application, Action& chosen);
void addBadPixels(CLI::App& application, Action& chosen);

/// Accepts finite numbers.
CLI::Validator finite();

/// Accepts finite numbers between the bounds, both included.
CLI::Validator finiteWithin(double low, double high);

}  // namespace movra::tool
