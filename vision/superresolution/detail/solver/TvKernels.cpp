#include "vision/superresolution/detail/solver/TvKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

// 1/sqrt(2): differences across a diagonal are divided by its length.
constexpr float inverseRootTwo = 0.70710677f;

inline float edgeWeight(float difference, const EdgeRule& rule) {
  const float atMost = difference < rule.largest ? difference : rule.largest;
  const float clamped = rule.smallest < difference ? atMost : rule.smallest;
  return rule.coefficient / clamped;
}

inline float axisWeight(float a, float b, const EdgeRule& rule) {
  return edgeWeight(__builtin_fabsf(a - b), rule);
}

inline float diagonalWeight(float a, float b, const EdgeRule& rule) {
  return edgeWeight(__builtin_fabsf(a - b) * inverseRootTwo, rule) * 0.5f;
}

// Weights of the edges from one pixel to the row below.
struct EdgesDown {
  float down, left, right;
};

template <bool left, bool right>
inline EdgesDown edgesDown(const float* row, int width, int c, const EdgeRule& rule) {
  const float* below = row + width;
  return {axisWeight(below[c], row[c], rule), left ? diagonalWeight(below[c - 1], row[c], rule) : 0.0f,
          right ? diagonalWeight(below[c + 1], row[c], rule) : 0.0f};
}

// One pixel of L x. The diagonal of L is the negative sum of the pixel's edge weights. Neighbours are left out where the
// image ends.
template <bool left, bool right, bool up, bool down>
inline float stencil(const float* x, int width, int c, const RowEdges& w, const EdgesDown& d) {
  float sum = left ? w.right[c - 1] : 0.0f;
  if (right) {
    sum += w.right[c];
  }
  if (up) {
    sum += w.above[c];
  }
  if (down) {
    sum += d.down;
  }
  if (up && left) {
    sum += w.aboveLeft[c];
  }
  if (down && right) {
    sum += d.right;
  }
  if (up && right) {
    sum += w.aboveRight[c];
  }
  if (down && left) {
    sum += d.left;
  }
  float result = -sum * x[c];
  if (left) {
    result += w.right[c - 1] * x[c - 1];
  }
  if (right) {
    result += w.right[c] * x[c + 1];
  }
  if (up) {
    result += w.above[c] * x[c - width];
  }
  if (down) {
    result += d.down * x[c + width];
  }
  if (up && left) {
    result += w.aboveLeft[c] * x[c - width - 1];
  }
  if (down && right) {
    result += d.right * x[c + width + 1];
  }
  if (up && right) {
    result += w.aboveRight[c] * x[c - width + 1];
  }
  if (down && left) {
    result += d.left * x[c + width - 1];
  }
  return result;
}

// The divisions for the row below and the memory reads of the stencil do not wait for each other.
template <bool left, bool right, bool up, bool down>
inline void applyAt(const float* frozen, const float* x, int width, int c, int weightsFrom, const EdgeRule& rule,
                    const RowEdges& here, const RowEdges& next, float* out) {
  EdgesDown d{0, 0, 0};
  if (down) {
    d = edgesDown<left, right>(frozen, width, weightsFrom, rule);
    next.above[c] = d.down;
    if (left) {
      next.aboveRight[c - 1] = d.left;
    }
    if (right) {
      next.aboveLeft[c + 1] = d.right;
    }
    if (right) {
      next.right[c] = axisWeight(frozen[c + width + 1], frozen[c + width], rule);
    }
  }
  out[c] = stencil<left, right, up, down>(x, width, c, here, d);
}

template <bool up, bool down>
void applyAlongRow(const float* frozen, const float* x, int width, const EdgeRule& givenRule, const RowEdges& givenHere,
                   const RowEdges& givenNext, float* out) {
  const EdgeRule rule = givenRule;
  const RowEdges here = givenHere;
  const RowEdges next = givenNext;
  const int last = width - 1;
  if (width == 1) {
    applyAt<false, false, up, down>(frozen, x, width, 0, 0, rule, here, next, out);
    return;
  }
  // On purpose: pixel 0 takes the edge weights of pixel 1. Results depend on it.
  const int weightsFrom = !up && width > 2 ? 1 : 0;
  applyAt<false, true, up, down>(frozen, x, width, 0, weightsFrom, rule, here, next, out);
#pragma GCC ivdep
  for (int c = 1; c < last; ++c) {
    applyAt<true, true, up, down>(frozen, x, width, c, c, rule, here, next, out);
  }
  applyAt<true, false, up, down>(frozen, x, width, last, last, rule, here, next, out);
}

void applyRow(const float* frozenImage, const float* image, int width, int height, int y, const EdgeRule& rule,
              const RowEdges& here, const RowEdges& next, float* result) {
  const long begin = static_cast<long>(y) * width;
  const float* frozen = frozenImage + begin;
  const float* x = image + begin;
  float* out = result + begin;
  const bool first = y == 0;
  const bool last = y == height - 1;
  if (first && last) {
    applyAlongRow<false, false>(frozen, x, width, rule, here, next, out);
  } else if (first) {
    applyAlongRow<false, true>(frozen, x, width, rule, here, next, out);
  } else if (last) {
    applyAlongRow<true, false>(frozen, x, width, rule, here, next, out);
  } else {
    applyAlongRow<true, true>(frozen, x, width, rule, here, next, out);
  }
}

void edgesOfFirstRow(const float* frozen, int width, const EdgeRule& rule, const RowEdges& edges) {
  for (int c = 0; c < width - 1; ++c) {
    edges.right[c] = axisWeight(frozen[c + 1], frozen[c], rule);
  }
  if (width > 2) {
    edges.right[0] = edges.right[1];
  }
}

}  // namespace

extern const TvKernels tvKernels;
const TvKernels tvKernels = [] {
  TvKernels kernels{};
  kernels.edgesOfFirstRow = edgesOfFirstRow;
  kernels.applyRow = applyRow;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
