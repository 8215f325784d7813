#include "vision/superresolution/detail/base/AlignedArray.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>

namespace movra::vision::detail {

namespace {

constexpr std::size_t cacheLine = 64;
constexpr std::size_t hugePage = std::size_t{2} << 20;

}  // namespace

void FreeAligned::operator()(float* memory) const {
  std::free(memory);
}

AlignedFloats makeAlignedFloats(std::size_t size) {
  if (size > std::numeric_limits<std::size_t>::max() / 2 / sizeof(float)) {
    throw std::bad_array_new_length();
  }
  const std::size_t bytes = std::max(size * sizeof(float), cacheLine);
  const bool large = bytes >= 2 * hugePage;
  void* memory = nullptr;
  if (posix_memalign(&memory, large ? hugePage : cacheLine, bytes) != 0) {
    throw std::bad_alloc();
  }
  if (large) {
    madvise(memory, bytes / hugePage * hugePage,
            MADV_HUGEPAGE);  // a wish: without huge pages all works the same
  }
  AlignedFloats floats(static_cast<float*>(memory));
  std::fill_n(floats.get(), size, 0.0f);
  return floats;
}

}  // namespace movra::vision::detail
