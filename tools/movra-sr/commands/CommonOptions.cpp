#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/Frames.h"

namespace movra::tool {

namespace {

CLI::Validator accepting(const std::string& description, const std::function<bool(double)>& accepted) {
  return CLI::Validator(
      [=](const std::string& text) {
        double value = std::numeric_limits<double>::quiet_NaN();
        CLI::detail::lexical_cast(text, value);
        return std::isfinite(value) && accepted(value) ? std::string() : text + " is not " + description;
      },
      description);
}

std::string plain(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

}  // namespace

CLI::Validator finite() {
  return accepting("a finite number", [](double) { return true; });
}

CLI::Validator finiteWithin(double low, double high) {
  return accepting("in " + plain(low) + " .. " + plain(high),
                   [=](double value) { return low <= value && value <= high; });
}

void requireExtension(const std::string& path, std::initializer_list<const char*> extensions,
                      const std::string& reason) {
  if (std::find(extensions.begin(), extensions.end(), lowerCaseExtension(path)) == extensions.end()) {
    throw Failure(ExitCode::usage, path + ": " + reason);
  }
}

void addConsoleOptions(CLI::App& command, Console& console) {
  const char* const group = "Output";
  command.add_flag("--json", console.json, "One JSON document on standard output with all figures, nothing else there")
      ->group(group);
  command.add_flag("--quiet", console.quiet, "Errors only")->group(group);
  command.add_flag("--strict", console.strict, "A note on standard error is a failure: exit code 1")->group(group);
}

}  // namespace movra::tool
