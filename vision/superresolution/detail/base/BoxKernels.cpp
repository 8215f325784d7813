#include "vision/superresolution/detail/base/BoxKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

// One element of each of the rows that are filtered together.
using BoxVector = float __attribute__((vector_size(boxRows * sizeof(float)), aligned(sizeof(float)), may_alias));

// Rows are independent chains of additions; their sums run side by side.
void filterAlongRows(const float* __restrict in, int length, int radius, float* __restrict out) {
  const auto* elements = reinterpret_cast<const BoxVector*>(in);
  auto* means = reinterpret_cast<BoxVector*>(out);
  const int reach = radius < length ? radius : length;
  const int window = 2 * reach + 1;
  BoxVector sums = {};
  for (int i = 0; i < reach; ++i) {
    sums += elements[i];
  }
  int i = 0;
  // Windows are cut at the left border, then whole, then cut at the right border.
  for (; i < reach && i < length; ++i) {
    if (i + reach < length) {
      sums += elements[i + reach];
    }
    means[i] = sums / static_cast<float>(i + reach < length ? i + reach + 1 : length);
  }
  const float reciprocal = 1.0f / static_cast<float>(window);
  for (; i + reach < length; ++i) {
    sums += elements[i + reach];
    means[i] = sums * reciprocal;
    sums -= elements[i - reach];
  }
  for (; i < length; ++i) {
    means[i] = sums / static_cast<float>(length - (i - reach));
    sums -= elements[i - reach];
  }
}

void addRow(const float* __restrict row, int columns, float* __restrict sums) {
  for (int x = 0; x < columns; ++x) {
    sums[x] += row[x];
  }
}

void subtractRow(const float* __restrict row, int columns, float* __restrict sums) {
  for (int x = 0; x < columns; ++x) {
    sums[x] -= row[x];
  }
}

void divideRow(const float* __restrict sums, float divisor, int columns, float* __restrict out) {
  for (int x = 0; x < columns; ++x) {
    out[x] = sums[x] / divisor;
  }
}

void slideRow(const float* __restrict entering, const float* __restrict leaving, float reciprocal, int columns,
              float* __restrict sums, float* __restrict out) {
  for (int x = 0; x < columns; ++x) {
    const float sum = sums[x] + entering[x];
    out[x] = sum * reciprocal;
    sums[x] = sum - leaving[x];
  }
}

}  // namespace

extern const BoxKernels boxKernels;
const BoxKernels boxKernels = [] {
  BoxKernels kernels{};
  kernels.filterAlongRows = filterAlongRows;
  kernels.addRow = addRow;
  kernels.subtractRow = subtractRow;
  kernels.divideRow = divideRow;
  kernels.slideRow = slideRow;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
