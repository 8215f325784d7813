#include "vision/superresolution/detail/BoxFilter.h"

#include <algorithm>

#include "vision/superresolution/detail/RegistrationKernels.h"
#include "vision/superresolution/detail/TransposeKernels.h"

namespace movra::vision::detail {

BoxFilter::BoxFilter(int width_)
    : width(width_),
      scratch(makeAlignedFloats(2 * boxLanes * static_cast<std::size_t>(width_))),
      sums(makeAlignedFloats(static_cast<std::size_t>(width_))) {}

void BoxFilter::apply(const float* in, int height, int radius, float* between, float* out) {
  if (radius <= 0) {
    std::copy_n(in, static_cast<std::ptrdiff_t>(height) * width, out);
    return;
  }
  float* const side = scratch.get();  // rows side by side, before and after
  float* const filtered = side + static_cast<std::ptrdiff_t>(boxLanes) * width;
  for (int y = 0; y < height; y += boxLanes) {
    const std::ptrdiff_t begin = static_cast<std::ptrdiff_t>(y) * width;
    const int rows = std::min(boxLanes, height - y);
    transposeKernels().transpose(in + begin, width, rows, width, side, boxLanes);
    registrationKernels().boxFilterLanes(side, width, radius, filtered);
    transposeKernels().transpose(filtered, boxLanes, width, rows, between + begin, width);
  }
  filterColumns(between, height, radius, out);
}

void BoxFilter::filterColumns(const float* in, int height, int radius, float* out) {
  const int reach = std::min(radius, height);
  const int window = 2 * reach + 1;
  const auto row = [&](int y) { return in + static_cast<std::ptrdiff_t>(y) * width; };

  std::fill_n(sums.get(), width, 0.0f);
  for (int y = 0; y < reach; ++y) {
    for (int x = 0; x < width; ++x) {
      sums[x] += row(y)[x];
    }
  }
  for (int y = 0; y < height; ++y) {
    const int count = std::min(y + reach, height - 1) - std::max(y - reach, 0) + 1;
    const bool whole = count == window;
    registrationKernels().boxFilterStep(sums.get(), y + reach < height ? row(y + reach) : nullptr,
                                        y >= reach ? row(y - reach) : nullptr, whole,
                                        whole ? 1.0f / static_cast<float>(window) : static_cast<float>(count),
                                        width, out + static_cast<std::ptrdiff_t>(y) * width);
  }
}

}  // namespace movra::vision::detail
