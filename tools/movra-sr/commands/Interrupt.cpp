#include "tools/movra-sr/commands/Interrupt.h"

#include <csignal>

namespace movra::tool {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void noteInterrupt(int) {
  interrupted = 1;
}

}  // namespace

void noteInterrupts() {
  std::signal(SIGINT, noteInterrupt);
  std::signal(SIGTERM, noteInterrupt);
}

bool isInterrupted() {
  return interrupted != 0;
}

}  // namespace movra::tool
