#include "vision/superresolution/detail/solver/SolverKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

// Adds term(i) for all i of the range to lane i mod 16. The whole blocks between the ends are what takes time.
template <class T, class Term>
inline void addToLanes(int begin, int end, T* lanes, Term term) {
  T sums[sumLanes];
  for (int l = 0; l < sumLanes; ++l) {
    sums[l] = lanes[l];
  }
  int i = begin;
  for (; i < end && i % sumLanes != 0; ++i) {
    sums[i % sumLanes] += term(i);
  }
  const int lastBlock = end - sumLanes;
  for (; i <= lastBlock; i += sumLanes) {
#pragma GCC ivdep
    for (int l = 0; l < sumLanes; ++l) {
      sums[l] += term(i + l);
    }
  }
  for (; i < end; ++i) {
    sums[i % sumLanes] += term(i);
  }
  for (int l = 0; l < sumLanes; ++l) {
    lanes[l] = sums[l];
  }
}

void addProducts(const float* __restrict a, const float* __restrict b, int begin, int end, float* __restrict lanes) {
  addToLanes(begin, end, lanes, [=](int i) { return a[i] * b[i]; });
}

void startResidual(const float* __restrict b, float* __restrict r, int begin, int end, float* __restrict lanes) {
  addToLanes(begin, end, lanes, [=](int i) {
    r[i] = b[i] - r[i];
    return r[i] * r[i];
  });
}

void stepAlong(float alpha, const float* p, const float* q, const float* x, float* newX, const float* r, float* newR,
               int begin, int end, float* __restrict lanes) {
  addToLanes(begin, end, lanes, [=](int i) {
    newX[i] = x[i] + alpha * p[i];
    newR[i] = r[i] - alpha * q[i];
    return newR[i] * newR[i];
  });
}

void addSquares(const float* __restrict a, int begin, int end, double* __restrict lanes) {
  addToLanes(begin, end, lanes, [=](int i) { return static_cast<double>(a[i] * a[i]); });
}

void addValues(const float* __restrict a, int size, double* __restrict lanes) {
  addToLanes(0, size, lanes, [=](int i) { return static_cast<double>(a[i]); });
}

void addSquaredDeviations(const float* __restrict a, int size, double mean, double* __restrict lanes) {
  addToLanes(0, size, lanes, [=](int i) {
    const double deviation = static_cast<double>(a[i]) - mean;
    return deviation * deviation;
  });
}

void normalise(float mean, float deviation, float* __restrict a, int size) {
  for (int i = 0; i < size; ++i) {
    a[i] = (a[i] - mean) / deviation;
  }
}

void turnDirection(float beta, const float* __restrict r, float* __restrict p, int begin, int end) {
  for (int i = begin; i < end; ++i) {
    p[i] = beta * p[i] + r[i];
  }
}

}  // namespace

extern const SolverKernels solverKernels;
const SolverKernels solverKernels{addProducts, startResidual,        stepAlong, turnDirection, addSquares,
                                  addValues,   addSquaredDeviations, normalise};

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
