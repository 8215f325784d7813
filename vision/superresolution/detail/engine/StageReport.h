#pragma once

#include <functional>
#include <vector>

#include "movra/StopWatch.h"

namespace movra::vision::detail {

/// In place of ConsoleReport: keeps the seconds of the engine's stages in their order (registration, judgement,
/// minimisation, saving) and the number of iterations. After each stage it calls `finished`, if that is set, with the
/// number of stages done; an exception from there ends the reconstruction.
class StageReport {
 public:
  void start() { watch.start(); }
  void stage(const char* /*label*/) {
    seconds.push_back(watch.stop());
    if (finished) {
      finished(seconds.size());
    }
  }
  void iterations(int count) { iterationCount = count; }
  void close() {}

  std::vector<double> seconds;
  int iterationCount = 0;
  std::function<void(std::size_t stages)> finished;

 private:
  StopWatch watch;
};

}  // namespace movra::vision::detail
