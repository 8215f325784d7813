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

/// Swallows what is written to standard output without an allocation.
class SilentStream : std::streambuf {
 public:
  SilentStream() : console(std::cout.rdbuf(this)) {}
  ~SilentStream() override { std::cout.rdbuf(console); }

 private:
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }

  std::streambuf* console;
};

}  // namespace movra::test
