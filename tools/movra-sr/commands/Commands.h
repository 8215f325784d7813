#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <initializer_list>
#include <string>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/report/Console.h"

namespace movra::tool {

/// What the chosen subcommand will do once the whole command line has been read.
using Action = std::function<ExitCode()>;

/// Each adds its subcommand to the application; when it is given, it puts its work into `chosen`, which talks through the
/// console.
void addReconstruct(CLI::App& application, Console& console, Action& chosen);
void addSimulate(CLI::App& application, Console& console, Action& chosen);
void addCompare(CLI::App& application, Console& console, Action& chosen);
void addBadPixels(CLI::App& application, Console& console, Action& chosen);
void addRegister(CLI::App& application, Console& console, Action& chosen);
void addStream(CLI::App& application, Console& console, Action& chosen);
void addMeasurePsf(CLI::App& application, Console& console, Action& chosen);
void addBatch(CLI::App& application, Console& console, Action& chosen);
void addInfo(CLI::App& application, Console& console, Action& chosen);

/// --json, --quiet and --strict, which every subcommand has.
void addConsoleOptions(CLI::App& command, Console& console);

/// Accepts finite numbers.
CLI::Validator finite();

/// Accepts finite numbers between the bounds, both included.
CLI::Validator finiteWithin(double low, double high);

/// Throws Failure (wrong command line) with the reason unless the name has one of the endings.
void requireExtension(const std::string& path, std::initializer_list<const char*> extensions,
                      const std::string& reason);

}  // namespace movra::tool
