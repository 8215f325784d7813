#pragma once

#include "movra/Export.h"
#include "movra/StopWatch.h"

namespace movra::vision {

/// The timing report of one reconstruction: a headline, one line per stage, a closing line, each flushed. This is the only
/// place where the library prints.
///
/// A host that cannot be written to is left alone: writing to a closed pipe raises no signal, nothing is thrown, and the
/// flags of the stream stay as they are. A stream that is not good gets nothing.
class MOVRA_SUPERRESOLUTION_API ConsoleReport {
 public:
  ConsoleReport();

  /// Starts the time of the next stage.
  void start() { watch.start(); }

  /// Writes the time since the start after `label`.
  void stage(const char* label);

  /// Not part of the report.
  void iterations(int /*count*/) {}

  void close();

 private:
  StopWatch watch;
};

}  // namespace movra::vision
