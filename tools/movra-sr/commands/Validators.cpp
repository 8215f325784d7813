#include <cmath>
#include <limits>
#include <sstream>

#include "tools/movra-sr/commands/Commands.h"

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

}  // namespace movra::tool
