#pragma once

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace movra::test {

/// Runs `call` as a host does that computes with subnormal numbers flushed to zero, where the machine can.
template <class Call>
void withFlushedSubnormals(Call call) {
#if defined(__SSE2__)
  const unsigned saved = _mm_getcsr();
  _mm_setcsr(saved | 0x8040U);
  call();
  _mm_setcsr(saved);
#else
  call();
#endif
}

}  // namespace movra::test
