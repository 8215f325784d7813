#include "tests/support/AllocationHooks.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <new>
#include <opencv2/core.hpp>

namespace movra::test::allocations {

long made = 0;
std::size_t bytes = 0;

namespace {

long firstFailure = std::numeric_limits<long>::max();
long lastFailure = 0;
bool hasFailed = false;

bool failsNow(std::size_t size) {
  const long number = made++;
  bytes += size;
  const bool fails = firstFailure <= number && number < lastFailure;
  hasFailed = hasFailed || fails;
  return fails;
}

/// OpenCV's own allocator, which takes pixels by malloc, with its own exception on failure.
class PixelAllocator : public cv::MatAllocator {
 public:
  PixelAllocator() { cv::Mat::setDefaultAllocator(this); }

  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step, cv::AccessFlag flags,
                         cv::UMatUsageFlags usage) const override {
    std::size_t size = CV_ELEM_SIZE(type);
    for (int i = 0; i < dims; ++i) {
      size *= static_cast<std::size_t>(sizes[i]);
    }
    if (data == nullptr && failsNow(size)) {
      CV_Error(cv::Error::StsNoMem, "no room for an image");
    }
    return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
  }
  bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    return cv::Mat::getStdAllocator()->allocate(data, flags, usage);
  }
  void deallocate(cv::UMatData* data) const override { cv::Mat::getStdAllocator()->deallocate(data); }
} pixelAllocator;

}  // namespace

void failFrom(long first, long count) {
  hasFailed = false;
  firstFailure = made + first;
  lastFailure = firstFailure + count;
}

bool disarm() {
  firstFailure = std::numeric_limits<long>::max();
  return hasFailed;
}

}  // namespace movra::test::allocations

using movra::test::allocations::failsNow;

void* operator new(std::size_t size) {
  void* const memory = failsNow(size) ? nullptr : std::malloc(size > 0 ? size : 1);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  void* memory = nullptr;
  if (posix_memalign(&memory, static_cast<std::size_t>(alignment), size > 0 ? size : 1) != 0) {
    throw std::bad_alloc();
  }
  return memory;
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return operator new[](size, alignment);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

extern "C" int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept {
  *out = failsNow(size) ? nullptr : aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  return *out != nullptr ? 0 : ENOMEM;
}

// OpenCV loses the memory of an image when the record beside it cannot be allocated. The leak checker asks this function.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:cv::fastMalloc\n";
}
