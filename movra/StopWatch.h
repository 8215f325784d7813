#pragma once

#include <chrono>

namespace movra {

/// Wall-clock stopwatch. Construction starts it.
class StopWatch {
 public:
  StopWatch() { start(); }

  /// Starts again from zero.
  void start() { begin = Clock::now(); }

  /// Seconds since the start; the watch goes on.
  double stop() const { return std::chrono::duration<double>(Clock::now() - begin).count(); }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point begin;
};

}  // namespace movra
