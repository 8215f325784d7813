#include "vision/superresolution/detail/solver/SolverKernels.h"

#include "vision/superresolution/detail/base/Sums.h"
#include "vision/superresolution/detail/base/Vectors.h"

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

// The same for floats; term(i, access) of one element, or of a vector of them.
#if defined(__AVX512F__)
template <class Term>
inline void addFloatsToSums(int begin, int end, float* sums, Term term) {
  const WholeVector whole;
  Vector local = whole.load(sums);
  const auto addPart = [&](int block, int first, int count) {
    const ElementsOfVector some(first, count);
    local = some.add(local, term(block, some));
  };
  int block = begin / partialSums * partialSums;
  if (block < begin && block < end) {
    addPart(block, begin - block, (end < block + partialSums ? end : block + partialSums) - begin);
    block += partialSums;
  }
  for (; block + partialSums <= end; block += partialSums) {
    local += term(block, whole);
  }
  if (block < end) {
    addPart(block, 0, end - block);
  }
  whole.store(local, sums);
}
#else
struct OneElement {
  float load(const float* from) const { return *from; }
  void store(float value, float* to) const { *to = value; }
};

template <class Term>
inline void addFloatsToSums(int begin, int end, float* sums, Term term) {
  addToSums(begin, end, sums, [=](int i) { return term(i, OneElement()); });
}
#endif

void addProducts(const float* __restrict a, const float* __restrict b, int begin, int end, float* __restrict sums) {
  addFloatsToSums(begin, end, sums, [=](int i, auto access) { return access.load(a + i) * access.load(b + i); });
}

void startResidual(const float* __restrict b, float* __restrict r, int begin, int end, float* __restrict sums) {
  addFloatsToSums(begin, end, sums, [=](int i, auto access) {
    const auto residual = access.load(b + i) - access.load(r + i);
    access.store(residual, r + i);
    return residual * residual;
  });
}

void reduceResidual(float alpha, const float* q, const float* r, float* newR, int begin, int end,
                    float* __restrict sums) {
  addFloatsToSums(begin, end, sums, [=](int i, auto access) {
    const auto residual = access.load(r + i) - alpha * access.load(q + i);
    access.store(residual, newR + i);
    return residual * residual;
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
