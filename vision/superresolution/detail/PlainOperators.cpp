#include "vision/superresolution/detail/PlainOperators.h"

#include <algorithm>

namespace movra::vision::detail {

void PlainOperators::fullConvFromSparse(const float* image, const char* mask, float* columns, float* out) const {
  std::fill_n(columns, elementCount(paddedHeight, grid.width), 0.0f);
  for (Index ky = 0; ky < psfHeight; ++ky) {
    for (Index r = 0; r < grid.height; ++r) {
      for (Index x = 0; x < grid.width; ++x) {
        const Index sample = r * grid.width + x;
        const auto weight = static_cast<float>(static_cast<signed char>(mask[sample]));
        columns[ky * grid.width + r * grid.rowStep + x] += weight * image[sample] * psfY[ky];
      }
    }
  }

  std::fill_n(out, elementCount(paddedHeight, paddedWidth), 0.0f);
  for (Index kx = 0; kx < psfWidth; ++kx) {
    for (Index y = 0; y < paddedHeight; ++y) {
      for (Index x = 0; x < grid.width; ++x) {
        out[y * paddedWidth + kx + grid.columnStride * x] += columns[y * grid.width + x] * psfX[kx];
      }
    }
  }
}

void PlainOperators::validCorrToSparse(const float* hr, float* columns, float* out) const {
  std::fill_n(columns, elementCount(paddedHeight, grid.width), 0.0f);
  for (Index kx = 0; kx < psfWidth; ++kx) {
    for (Index y = 0; y < paddedHeight; ++y) {
      for (Index x = 0; x < grid.width; ++x) {
        columns[y * grid.width + x] += hr[y * paddedWidth + kx + grid.columnStride * x] * psfX[kx];
      }
    }
  }

  std::fill_n(out, elementCount(grid.height, grid.width), 0.0f);
  for (Index ky = 0; ky < psfHeight; ++ky) {
    for (Index r = 0; r < grid.height; ++r) {
      for (Index x = 0; x < grid.width; ++x) {
        out[r * grid.width + x] += columns[ky * grid.width + r * grid.rowStep + x] * psfY[ky];
      }
    }
  }
}

}  // namespace movra::vision::detail
