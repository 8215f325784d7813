#include "tools/movra-sr/io/DivertedDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace movra::tool {

namespace {

void flushStreams() {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(nullptr);
}

}  // namespace

DivertedDescriptor::DivertedDescriptor(int descriptor, int target)
    : diverted(descriptor), saved(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)) {
  flushStreams();
  if (target != nowhere) {
    dup2(target, diverted);
    return;
  }
  const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (sink < 0) {
    return;
  }
  dup2(sink, diverted);
  if (sink != diverted) {
    close(sink);
  }
}

DivertedDescriptor::~DivertedDescriptor() {
  flushStreams();
  if (saved >= 0) {
    dup2(saved, diverted);
    close(saved);
  } else {
    close(diverted);  // it was closed before, too
  }
}

}  // namespace movra::tool
