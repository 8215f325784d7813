#include "vision/superresolution/detail/solver/SolverKernels.h"

#include "vision/superresolution/detail/base/Sums.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

// Adds term(i) for all i of the range to partial sum i mod 16. The whole blocks between the ends are what takes time.
template <class T, class Term>
inline void addToSums(int begin, int end, T* sums, Term term) {
  T local[partialSums];
  for (int l = 0; l < partialSums; ++l) {
    local[l] = sums[l];
  }
  int i = begin;
  for (; i < end && i % partialSums != 0; ++i) {
    local[i % partialSums] += term(i);
  }
  const int lastBlock = end - partialSums;
  for (; i <= lastBlock; i += partialSums) {
#pragma GCC ivdep
    for (int l = 0; l < partialSums; ++l) {
      local[l] += term(i + l);
    }
  }
  for (; i < end; ++i) {
    local[i % partialSums] += term(i);
  }
  for (int l = 0; l < partialSums; ++l) {
    sums[l] = local[l];
  }
}

void addProducts(const float* __restrict a, const float* __restrict b, int begin, int end, float* __restrict sums) {
  addToSums(begin, end, sums, [=](int i) { return a[i] * b[i]; });
}

void startResidual(const float* __restrict b, float* __restrict r, int begin, int end, float* __restrict sums) {
  addToSums(begin, end, sums, [=](int i) {
    r[i] = b[i] - r[i];
    return r[i] * r[i];
  });
}

void reduceResidual(float alpha, const float* q, const float* r, float* newR, int begin, int end,
                    float* __restrict sums) {
  addToSums(begin, end, sums, [=](int i) {
    newR[i] = r[i] - alpha * q[i];
    return newR[i] * newR[i];
  });
}

void stepAlong(float alpha, const float* p, const float* x, float* newX, int begin, int end) {
#pragma GCC ivdep
  for (int i = begin; i < end; ++i) {
    newX[i] = x[i] + alpha * p[i];
  }
}

void addSquares(const float* __restrict a, int begin, int end, double* __restrict sums) {
  addToSums(begin, end, sums, [=](int i) { return static_cast<double>(a[i] * a[i]); });
}

void addValues(const float* __restrict a, int size, double* __restrict sums) {
  addToSums(0, size, sums, [=](int i) { return static_cast<double>(a[i]); });
}

void addSquaredDeviations(const float* __restrict a, int size, double mean, double* __restrict sums) {
  addToSums(0, size, sums, [=](int i) {
    const double deviation = static_cast<double>(a[i]) - mean;
    return deviation * deviation;
  });
}

void normalise(float mean, float deviation, float* __restrict a, int size) {
  for (int i = 0; i < size; ++i) {
    a[i] = (a[i] - mean) / deviation;
  }
}

void updateDirection(float beta, const float* __restrict r, float* __restrict p, int begin, int end) {
  for (int i = begin; i < end; ++i) {
    p[i] = beta * p[i] + r[i];
  }
}

}  // namespace

extern const SolverKernels solverKernels;
const SolverKernels solverKernels = [] {
  SolverKernels kernels{};
  kernels.addProducts = addProducts;
  kernels.startResidual = startResidual;
  kernels.reduceResidual = reduceResidual;
  kernels.stepAlong = stepAlong;
  kernels.updateDirection = updateDirection;
  kernels.addSquares = addSquares;
  kernels.addValues = addValues;
  kernels.addSquaredDeviations = addSquaredDeviations;
  kernels.normalise = normalise;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
