#include "vision/superresolution/detail/base/BoxFilter.h"

#include "vision/superresolution/detail/base/TransposeKernels.h"

namespace movra::vision::detail {

BoxFilter::BoxFilter(int width_)
    : width(width_),
      scratch(makeAlignedFloats(2 * boxRows * static_cast<std::size_t>(width_))),
      sums(makeAlignedFloats(static_cast<std::size_t>(width_))) {}

void BoxFilter::apply(const float* in, int imageHeight, int windowRadius, float* out) {
  const auto at = [&](int y) { return static_cast<std::ptrdiff_t>(y) * width; };
  run(
      imageHeight, windowRadius, [&](int y, int) { return in + at(y); }, [&](int y) { return out + at(y); },
      [](int, const float*) {});
}

// The ring has whole blocks: the rows of a window, and those that enter while its last row is not emitted yet.
void BoxFilter::start(int imageHeight, int windowRadius) {
  height = imageHeight;
  radius = std::max(windowRadius, 0);
  reach = std::min(radius, height);
  const auto wholeBlocks = [](int rows) { return (rows + boxRows - 1) / boxRows * boxRows; };
  ringRows = std::min(wholeBlocks(2 * reach) + boxRows, wholeBlocks(height));
  if (ringCapacity < ringRows) {
    ring = makeAlignedFloats(static_cast<std::size_t>(ringRows) * static_cast<std::size_t>(width));
    ringCapacity = ringRows;
  }
  std::fill_n(sums.get(), width, 0.0f);
}

void BoxFilter::enterRows(const float* rows, int y, int count) {
  if (radius == 0) {
    std::copy_n(rows, static_cast<std::ptrdiff_t>(count) * width, ringRow(y));
    return;
  }
  float* const side = scratch.get();  // rows side by side, before and after
  float* const filtered = side + static_cast<std::ptrdiff_t>(boxRows) * width;
  transposeKernels().transpose(rows, width, count, width, side, boxRows);
  boxKernels().filterAlongRows(side, width, radius, filtered);
  transposeKernels().transpose(filtered, boxRows, width, count, ringRow(y), width);
}

// The means along columns of the rows around y. `sums` holds the rows before y + reach that are still in the window.
void BoxFilter::emitRow(int y, float* out) {
  if (radius == 0) {
    std::copy_n(ringRow(y), width, out);
    return;
  }
  const BoxKernels& kernels = boxKernels();
  if (y == 0) {
    for (int early = 0; early < reach; ++early) {
      kernels.addRow(ringRow(early), width, sums.get());
    }
  }
  const int entering = y + reach;
  const int leaving = y - reach;
  if (leaving >= 0 && entering < height) {
    const float reciprocal = 1.0f / static_cast<float>(2 * reach + 1);
    kernels.slideRow(ringRow(entering), ringRow(leaving), reciprocal, width, sums.get(), out);
    return;
  }
  if (entering < height) {
    kernels.addRow(ringRow(entering), width, sums.get());
  }
  const int rowsInWindow = std::min(entering, height - 1) - std::max(leaving, 0) + 1;
  kernels.divideRow(sums.get(), static_cast<float>(rowsInWindow), width, out);
  if (leaving >= 0) {
    kernels.subtractRow(ringRow(leaving), width, sums.get());
  }
}

}  // namespace movra::vision::detail
