#include "vision/superresolution/detail/base/BoxFilter.h"

#include "vision/superresolution/detail/base/TransposeKernels.h"

namespace movra::vision::detail {

BoxFilter::BoxFilter(int width_)
    : width(width_),
      scratch(makeAlignedFloats(2 * boxLanes * static_cast<std::size_t>(width_))),
      sums(makeAlignedFloats(static_cast<std::size_t>(width_))) {}

void BoxFilter::apply(const float* in, int imageHeight, int windowRadius, float* out) {
  const auto at = [&](int y) { return static_cast<std::ptrdiff_t>(y) * width; };
  run(
      imageHeight, windowRadius, [&](int y, int) { return in + at(y); }, [&](int y) { return out + at(y); },
      [](int, const float*) {});
}

// The ring has whole blocks: the rows of a window, and those that enter while its last row waits.
void BoxFilter::start(int imageHeight, int windowRadius) {
  height = imageHeight;
  radius = std::max(windowRadius, 0);
  reach = std::min(radius, height);
  const auto wholeBlocks = [](int rows) { return (rows + boxLanes - 1) / boxLanes * boxLanes; };
  ringRows = std::min(wholeBlocks(2 * reach) + boxLanes, wholeBlocks(height));
  if (ringCapacity < ringRows) {
    ring = makeAlignedFloats(static_cast<std::size_t>(ringRows) * static_cast<std::size_t>(width));
    ringCapacity = ringRows;
  }
  std::fill_n(sums.get(), width, 0.0f);
}

void BoxFilter::enter(const float* rows, int y, int count) {
  if (radius == 0) {
    std::copy_n(rows, static_cast<std::ptrdiff_t>(count) * width, ringRow(y));
    return;
  }
  float* const side = scratch.get();  // rows side by side, before and after
  float* const filtered = side + static_cast<std::ptrdiff_t>(boxLanes) * width;
  transposeKernels().transpose(rows, width, count, width, side, boxLanes);
  registrationKernels().boxFilterLanes(side, width, radius, filtered);
  transposeKernels().transpose(filtered, boxLanes, width, count, ringRow(y), width);
}

// Sums along columns over the rows around y.
void BoxFilter::leave(int y, float* out) {
  if (radius == 0) {
    std::copy_n(ringRow(y), width, out);
    return;
  }
  for (int early = 0; y == 0 && early < reach; ++early) {
    for (int x = 0; x < width; ++x) {
      sums[x] += ringRow(early)[x];
    }
  }
  const int window = 2 * reach + 1;
  const int count = std::min(y + reach, height - 1) - std::max(y - reach, 0) + 1;
  const bool whole = count == window;
  registrationKernels().boxFilterStep(
      sums.get(), y + reach < height ? ringRow(y + reach) : nullptr, y >= reach ? ringRow(y - reach) : nullptr, whole,
      whole ? 1.0f / static_cast<float>(window) : static_cast<float>(count), width, out);
}

}  // namespace movra::vision::detail
