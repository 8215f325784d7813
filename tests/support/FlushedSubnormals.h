#pragma once

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace movra::test {

/// As a host that computes with subnormal numbers flushed to zero, where the machine can.
class FlushedSubnormals {
#if defined(__SSE2__)
 public:
  FlushedSubnormals() : saved(_mm_getcsr()) {
    _mm_setcsr(saved | 0x8040U);
  }
  FlushedSubnormals(const FlushedSubnormals&) = delete;
  FlushedSubnormals& operator=(const FlushedSubnormals&) = delete;
  ~FlushedSubnormals() {
    _mm_setcsr(saved);
  }

 private:
  unsigned saved;
#endif
};

}  // namespace movra::test
