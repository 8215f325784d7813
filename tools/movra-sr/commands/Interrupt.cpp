#include "tools/movra-sr/commands/Interrupt.h"

#include <csignal>

#include "tools/movra-sr/io/OutputFile.h"

namespace movra::tool {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void noteInterrupt(int) {
  interrupted = 1;
  OutputFile::removeUnfinishedOnSignals();  // the second one ends the program
}

}  // namespace

void noteInterrupts() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    if (std::signal(number, noteInterrupt) == SIG_IGN && number == SIGHUP) {
      std::signal(number, SIG_IGN);  // nohup
    }
  }
}

bool isInterrupted() {
  return interrupted != 0;
}

}  // namespace movra::tool
