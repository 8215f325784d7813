#pragma once

namespace movra::vision {

/// In place of ConsoleReport where nothing is to be written.
class NoReport {
 public:
  void start() {}
  void stage(const char* /*label*/) {}
  void close() {}
};

}  // namespace movra::vision
