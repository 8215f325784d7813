#pragma once

#include <iostream>
#include <sstream>

namespace movra::test {

/// Keeps what is written to standard output, as the engine's report, off the test's output.
class SilentConsole {
 public:
  SilentConsole() : console(std::cout.rdbuf(written.rdbuf())) {}
  SilentConsole(const SilentConsole&) = delete;
  SilentConsole& operator=(const SilentConsole&) = delete;
  ~SilentConsole() { std::cout.rdbuf(console); }

  std::string text() const { return written.str(); }

 private:
  std::ostringstream written;
  std::streambuf* console;
};

}  // namespace movra::test
