#include "vision/superresolution/detail/engine/ConsoleReport.h"

#include <pthread.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <string_view>

namespace movra::vision {

namespace {

// Keeps the signals of a failed write from the host: they are blocked in this thread, and one that came up meanwhile is
// taken back.
class WithoutWriteSignals {
 public:
  WithoutWriteSignals() {
    sigset_t pending;
    sigpending(&pending);
    sigemptyset(&ours);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      if (sigismember(&pending, signal) == 0) {
        sigaddset(&ours, signal);
      }
    }
    pthread_sigmask(SIG_BLOCK, &ours, &before);
  }
  WithoutWriteSignals(const WithoutWriteSignals&) = delete;
  WithoutWriteSignals& operator=(const WithoutWriteSignals&) = delete;
  ~WithoutWriteSignals() {
    constexpr timespec noWait{0, 0};
    while (sigtimedwait(&ours, nullptr, &noWait) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

 private:
  sigset_t ours;
  sigset_t before;
};

// Straight to the stream's buffer: the host's formats, exceptions and flags of the stream have no part in it.
void writeLine(std::string_view text) {
  std::streambuf* const buffer = std::cout.rdbuf();
  if (!std::cout.good() || buffer == nullptr) {
    return;
  }
  const bool couldWrite = std::ferror(stdout) == 0;
  const WithoutWriteSignals guard;
  try {
    buffer->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    buffer->sputc('\n');
    buffer->pubsync();
  } catch (...) {  // from a buffer of the host's
  }
  if (couldWrite && std::ferror(stdout) != 0) {
    std::clearerr(stdout);
  }
}

}  // namespace

ConsoleReport::ConsoleReport() {
  writeLine("++++++++++ SrFloat ++++++++++");
}

void ConsoleReport::stage(const char* label) {
  const double milliseconds = watch.stop() * 1000.0;
  constexpr std::string_view unit = "[ms]";
  char line[80];
  char* end = line + std::string_view(label).copy(line, 40);
  // The format of a stream by default, in any locale.
  end = std::to_chars(end, line + sizeof line - unit.size(), milliseconds, std::chars_format::general, 6).ptr;
  end += unit.copy(end, unit.size());
  writeLine({line, static_cast<std::size_t>(end - line)});
}

void ConsoleReport::close() {
  writeLine("+++++++++++++++++++++++++++++");
}

}  // namespace movra::vision
