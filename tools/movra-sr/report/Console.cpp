#include "tools/movra-sr/report/Console.h"

#include <algorithm>
#include <iostream>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

void printOnError(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  std::cerr << "movra-sr: " << text << '\n';
}

void Console::say(const std::string& line) const {
  if (!json && !quiet) {
    std::cout << line << '\n';
  }
}

void Console::tell(const std::string& text) const {
  if (!quiet) {
    std::cerr << text;
  }
}

void Console::note(const std::string& text) {
  document["notes"].push_back(text);
  if (!quiet) {
    printOnError(text);
  }
}

void Console::endIfStrict() const {
  if (strict && hasNotes()) {
    throw Failure(ExitCode::degraded,
                  "nothing written, because of --strict: " + document["notes"].front().get<std::string>());
  }
}

void Console::finish(int exitCode) {
  if (json) {
    document["exit_code"] = exitCode;
    // File names can hold any bytes.
    std::cout << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  }
}

}  // namespace movra::tool
