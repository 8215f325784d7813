#include "FailingAllocations.h"

#include <cstdlib>
#include <new>

namespace movra::test {
thread_local int allocationsUntilFailure = -1;
}

void* operator new(std::size_t size) {
  int& left = movra::test::allocationsUntilFailure;
  void* memory = left >= 0 && left-- == 0 ? nullptr : std::malloc(size > 0 ? size : 1);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
