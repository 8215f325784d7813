#pragma once

#include "movra/Export.h"

namespace movra::vision {

/// In place of ConsoleReport where nothing is to be written.
class MOVRA_SUPERRESOLUTION_API NoReport {
 public:
  void start() {}
  void stage(const char* /*label*/) {}
  void iterations(int /*count*/) {}
  void close() {}
};

}  // namespace movra::vision
