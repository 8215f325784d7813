#include "vision/superresolution/detail/badpixels/FrameKernels.h"

#include "vision/superresolution/detail/badpixels/ValueKey.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

void scanValues(const float* pixels, std::ptrdiff_t count, ValidRange valid, ValueScan* scan) {
  std::int32_t smallest = scan->smallest;
  std::int32_t largest = scan->largest;
  std::int32_t defects = 0;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const std::int32_t key = keyOf(pixels[i]);
    const std::int32_t bad = isFlag(bitsOf(pixels[i])) | (key < valid.lowest) | (key > valid.highest);
    // A mask instead of a condition: the compiler would turn that into branches.
    const std::int32_t keep = bad - 1;
    const std::int32_t low = (key & keep) | (valid.highest & ~keep);
    const std::int32_t high = (key & keep) | (valid.lowest & ~keep);
    smallest = low < smallest ? low : smallest;
    largest = high > largest ? high : largest;
    defects += bad;
  }
  scan->smallest = smallest;
  scan->largest = largest;
  scan->defects += defects;
}

std::ptrdiff_t countMarked(const float* pixels, std::ptrdiff_t count) {
  std::int32_t marked = 0;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    marked += isMarked(bitsOf(pixels[i]));
  }
  return marked;
}

}  // namespace

extern const FrameKernels frameKernels;
const FrameKernels frameKernels = [] {
  FrameKernels kernels{};
  kernels.scanValues = scanValues;
  kernels.countMarked = countMarked;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
