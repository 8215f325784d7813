#include "vision/superresolution/detail/SolverKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

constexpr float inverseRootTwo = 0.70710677f;  // a diagonal neighbour is farther by this

inline float absolute(float value) {
  return __builtin_fabsf(value);
}

inline float edgeWeight(float difference, const EdgeRule& rule) {
  const float clamped =
      rule.smallest < difference ? (rule.largest <= difference ? rule.largest : difference) : rule.smallest;
  return rule.coefficient / clamped;
}

inline float diagonalWeight(float difference, const EdgeRule& rule) {
  return edgeWeight(difference * inverseRootTwo, rule) * 0.5f;
}

// The edges of pixel 0 are weighted as those of its right neighbour are, and it has none down-left.
void replaceFirstPixel(const float* x, int width, const EdgeRule& rule, bool lastRow,
                       const EdgeWeights& weights) {
  if (width < 3) {
    return;
  }
  weights.right[0] = edgeWeight(absolute(x[2] - x[1]), rule);
  if (!lastRow) {
    weights.down[0] = edgeWeight(absolute(x[width + 1] - x[1]), rule);
    weights.downRight[0] = diagonalWeight(absolute(x[width + 2] - x[1]), rule);
  }
}

void edgeWeightsOfRow(const float* x, int width, int height, int y, const EdgeRule& givenRule,
                      const EdgeWeights& weights) {
  const EdgeRule rule = givenRule;
  const float* __restrict row = x + static_cast<long>(y) * width;
  float* __restrict right = weights.right + static_cast<long>(y) * width;
  float* __restrict down = weights.down + static_cast<long>(y) * width;
  float* __restrict downLeft = weights.downLeft + static_cast<long>(y) * width;
  float* __restrict downRight = weights.downRight + static_cast<long>(y) * width;
  const int last = width - 1;
  const bool lastRow = y == height - 1;
  if (lastRow) {
    for (int i = 0; i < last; ++i) {
      right[i] = edgeWeight(absolute(row[i + 1] - row[i]), rule);
    }
    for (int i = 0; i < width; ++i) {
      down[i] = downLeft[i] = downRight[i] = 0;
    }
  } else {
    const float* __restrict below = row + width;
    for (int i = 0; i < last; ++i) {
      right[i] = edgeWeight(absolute(row[i + 1] - row[i]), rule);
      downRight[i] = diagonalWeight(absolute(below[i + 1] - row[i]), rule);
    }
    for (int i = 0; i < width; ++i) {
      down[i] = edgeWeight(absolute(below[i] - row[i]), rule);
    }
    for (int i = 1; i < width; ++i) {
      downLeft[i] = diagonalWeight(absolute(below[i - 1] - row[i]), rule);
    }
    downLeft[0] = 0;
    downRight[last] = 0;
  }
  right[last] = 0;
  if (y == 0) {
    replaceFirstPixel(x, width, rule, lastRow, weights);
  }
}

// One pixel of L x. Neighbours are left out where the image ends; inside, the weight of a missing edge is 0.
// The diagonal of L is the negative sum of the pixel's edge weights.
template <bool left, bool right, bool up, bool down>
inline float stencilPixel(const float* x, int width, int i, const EdgeWeights& w) {
  float sum = left ? w.right[i - 1] : 0.0f;
  if (right) sum += w.right[i];
  if (up) sum += w.down[i - width];
  if (down) sum += w.down[i];
  if (up && left) sum += w.downRight[i - width - 1];
  if (down && right) sum += w.downRight[i];
  if (up && right) sum += w.downLeft[i - width + 1];
  if (down && left) sum += w.downLeft[i];
  float result = -sum * x[i];
  if (left) result += w.right[i - 1] * x[i - 1];
  if (right) result += w.right[i] * x[i + 1];
  if (up) result += w.down[i - width] * x[i - width];
  if (down) result += w.down[i] * x[i + width];
  if (up && left) result += w.downRight[i - width - 1] * x[i - width - 1];
  if (down && right) result += w.downRight[i] * x[i + width + 1];
  if (up && right) result += w.downLeft[i - width + 1] * x[i - width + 1];
  if (down && left) result += w.downLeft[i] * x[i + width - 1];
  return result;
}

template <bool up, bool down>
void stencilRowBetween(const float* x, int width, int begin, const EdgeWeights& weights, float* out) {
  const EdgeWeights w = weights;
  const int last = begin + width - 1;
  if (width == 1) {
    out[begin] = stencilPixel<false, false, up, down>(x, width, begin, w);
    return;
  }
  out[begin] = stencilPixel<false, true, up, down>(x, width, begin, w);
#pragma GCC ivdep
  for (int i = begin + 1; i < last; ++i) {
    out[i] = stencilPixel<true, true, up, down>(x, width, i, w);
  }
  out[last] = stencilPixel<true, false, up, down>(x, width, last, w);
}

void stencilRow(const float* x, int width, int height, int y, const EdgeWeights& weights, float* out) {
  const int begin = y * width;
  const bool first = y == 0;
  const bool last = y == height - 1;
  if (first && last) {
    stencilRowBetween<false, false>(x, width, begin, weights, out);
  } else if (first) {
    stencilRowBetween<false, true>(x, width, begin, weights, out);
  } else if (last) {
    stencilRowBetween<true, false>(x, width, begin, weights, out);
  } else {
    stencilRowBetween<true, true>(x, width, begin, weights, out);
  }
}

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
  for (; i + sumLanes <= end; i += sumLanes) {
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

void addProducts(const float* __restrict a, const float* __restrict b, int begin, int end,
                 float* __restrict lanes) {
  addToLanes(begin, end, lanes, [=](int i) { return a[i] * b[i]; });
}

void startResidual(const float* __restrict b, float* __restrict r, float* __restrict p, int begin, int end,
                   float* __restrict lanes) {
  addToLanes(begin, end, lanes, [=](int i) {
    r[i] = b[i] - r[i];
    p[i] = r[i];
    return r[i] * r[i];
  });
}

void stepAlong(float alpha, const float* __restrict p, const float* __restrict q, float* __restrict x,
               float* __restrict r, int begin, int end, float* __restrict lanes) {
  addToLanes(begin, end, lanes, [=](int i) {
    x[i] += alpha * p[i];
    r[i] -= alpha * q[i];
    return r[i] * r[i];
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
const SolverKernels solverKernels{edgeWeightsOfRow, stencilRow, addProducts, startResidual,        stepAlong,
                                  turnDirection,    addSquares, addValues,   addSquaredDeviations, normalise};

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
