#pragma once

#include <iostream>

#include "movra/Export.h"
#include "movra/StopWatch.h"

namespace movra::vision {

/// The timing report of one reconstruction: a headline, one line per stage, a closing line. This is the only place where
/// the library prints.
class MOVRA_SUPERRESOLUTION_API ConsoleReport {
 public:
  ConsoleReport() { std::cout << "++++++++++ SrFloat ++++++++++" << std::endl; }

  /// Starts the time of the next stage.
  void start() { watch.start(); }

  /// Writes the time since the start after `label`.
  void stage(const char* label) { std::cout << label << watch.stop() * 1000.0 << "[ms]" << std::endl; }

  /// Not part of the report.
  void iterations(int /*count*/) {}

  void close() { std::cout << "+++++++++++++++++++++++++++++" << std::endl; }

 private:
  StopWatch watch;
};

}  // namespace movra::vision
