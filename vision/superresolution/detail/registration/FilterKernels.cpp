#include "vision/superresolution/detail/registration/FilterKernels.h"

#if defined(__AVX2__)
#pragma GCC target("fma")
#endif
#include "vision/superresolution/detail/base/FusedMultiplyAdd.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

constexpr int lanes = 16;

void fusedBlurRow(const float* __restrict row, const float* __restrict taps, int count, float* __restrict out) {
  for (int x = 0; x < count; ++x) {
    float sum = row[x] * taps[0];
#pragma GCC unroll 10
    for (int i = 1; i < blurTaps; ++i) {
      sum = fusedMultiplyAdd(row[x + i], taps[i], sum);
    }
    out[x] = sum;
  }
}

inline float blurColumn(const float* const* __restrict rows, const float* __restrict taps, int x) {
  float sum = rows[blurRadius][x] * taps[blurRadius];
#pragma GCC unroll 5
  for (int i = 1; i <= blurRadius; ++i) {
    sum = fusedMultiplyAdd(rows[blurRadius + i][x] + rows[blurRadius - i][x], taps[blurRadius + i], sum);
  }
  return sum;
}

void fusedBlurColumns(const float* const* __restrict rows, const float* __restrict taps, int count,
                      float* __restrict out, float* __restrict range) {
  float lowest[lanes];
  float highest[lanes];
  for (int l = 0; l < lanes; ++l) {
    lowest[l] = range[0];
    highest[l] = range[1];
  }
  const float* each[blurTaps];
  for (int i = 0; i < blurTaps; ++i) {
    each[i] = rows[i];
  }
  int x = 0;
  for (; x + lanes <= count; x += lanes) {
#pragma GCC ivdep
    for (int l = 0; l < lanes; ++l) {
      const float value = blurColumn(each, taps, x + l);
      out[x + l] = value;
      lowest[l] = value < lowest[l] ? value : lowest[l];
      highest[l] = value > highest[l] ? value : highest[l];
    }
  }
  for (; x < count; ++x) {
    const float value = blurColumn(each, taps, x);
    out[x] = value;
    lowest[0] = value < lowest[0] ? value : lowest[0];
    highest[0] = value > highest[0] ? value : highest[0];
  }
  for (int l = 0; l < lanes; ++l) {
    range[0] = lowest[l] < range[0] ? lowest[l] : range[0];
    range[1] = highest[l] > range[1] ? highest[l] : range[1];
  }
}

void fusedDerivativeRow(const float* __restrict row, float scale, int count, float* __restrict difference,
                        float* __restrict smooth) {
  const float twice = 2.0f * scale;
  for (int x = 0; x < count; ++x) {
    difference[x] = row[x + 1] - row[x - 1];
    smooth[x] = fusedMultiplyAdd(row[x], twice, (row[x - 1] + row[x + 1]) * scale);
  }
  if (count % 2 == 1) {
    const int x = count - 1;
    smooth[x] = fusedMultiplyAdd(row[x - 1] + row[x + 1], scale, row[x] * twice);
  }
}

void fusedDerivativeProducts(const float* const* __restrict differences, const float* __restrict smoothAbove,
                             const float* __restrict smoothBelow, float scale, int count,
                             float* const* __restrict products) {
  const float twice = 2.0f * scale;
  const float* __restrict above = differences[0];
  const float* __restrict middle = differences[1];
  const float* __restrict below = differences[2];
  float* __restrict xx = products[0] + 1;
  float* __restrict xy = products[1] + 1;
  float* __restrict yy = products[2] + 1;
#pragma GCC ivdep
  for (int i = 0; i < count; ++i) {
    const float x = fusedMultiplyAdd(above[i] + below[i], scale, middle[i] * twice);
    const float y = smoothBelow[i] - smoothAbove[i];
    xx[i] = x * x;
    xy[i] = x * y;
    yy[i] = y * y;
  }
}

void sumThree(const float* __restrict products, int count, double* __restrict sums) {
  for (int x = 0; x < count; ++x) {
    sums[x] =
        static_cast<double>(products[x]) + static_cast<double>(products[x + 1]) + static_cast<double>(products[x + 2]);
  }
}

struct BlockSums {
  const double* __restrict entering;
  const double* __restrict leaving;
  double* __restrict sums;
};

inline float moveOn(const BlockSums& block, int x) {
  const double sum = block.sums[x] + block.entering[x];
  block.sums[x] = sum - block.leaving[x];
  return static_cast<float>(sum);
}

float eigenvalueRow(const double* const* entering, const double* const* leaving, double* const* sums, int count,
                    float* __restrict eigenvalues) {
  const BlockSums xx{entering[0], leaving[0], sums[0]};
  const BlockSums xy{entering[1], leaving[1], sums[1]};
  const BlockSums yy{entering[2], leaving[2], sums[2]};
#pragma GCC ivdep
  for (int i = 0; i < count; ++i) {
    const float a = moveOn(xx, i) * 0.5f;
    const float b = moveOn(xy, i);
    const float c = moveOn(yy, i) * 0.5f;
    eigenvalues[i] = (a + c) - __builtin_sqrtf((a - c) * (a - c) + b * b);
  }
  float largest = -__builtin_inff();
  for (int i = 0; i < count; ++i) {
    largest = eigenvalues[i] > largest ? eigenvalues[i] : largest;
  }
  return largest;
}

}  // namespace

extern const FilterKernels filterKernels;
const FilterKernels filterKernels = [] {
  FilterKernels kernels{};
  kernels.fusedBlurRow = fusedBlurRow;
  kernels.fusedBlurColumns = fusedBlurColumns;
  kernels.fusedDerivativeRow = fusedDerivativeRow;
  kernels.fusedDerivativeProducts = fusedDerivativeProducts;
  kernels.sumThree = sumThree;
  kernels.eigenvalueRow = eigenvalueRow;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
