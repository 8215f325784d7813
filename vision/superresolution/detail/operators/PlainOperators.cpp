#include "vision/superresolution/detail/operators/PlainOperators.h"

#include <algorithm>

namespace movra::vision::detail {

namespace {

float weightOf(char mask) {
  return static_cast<float>(static_cast<signed char>(mask));
}
float weightOf(float mask) {
  return mask;
}

}  // namespace

template <class Mask>
void PlainOperators::fullConvFromSparse(const float* image, const Mask* mask, float* columns, float* out) const {
  std::fill_n(columns, elementCount(paddedHeight, grid.width), 0.0f);
  for (Index ky = 0; ky < psfHeight; ++ky) {
    for (Index r = 0; r < grid.height; ++r) {
      for (Index x = 0; x < grid.width; ++x) {
        const Index sample = r * grid.width + x;
        columns[ky * grid.width + r * grid.rowStep + x] += weightOf(mask[sample]) * image[sample] * psfY[ky];
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

template void PlainOperators::fullConvFromSparse(const float*, const char*, float*, float*) const;
template void PlainOperators::fullConvFromSparse(const float*, const float*, float*, float*) const;

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
