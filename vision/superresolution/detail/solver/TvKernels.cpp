#include "vision/superresolution/detail/solver/TvKernels.h"

#include "vision/superresolution/detail/base/Vectors.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

// 1/sqrt(2): differences across a diagonal are divided by its length.
constexpr float inverseRootTwo = 0.70710677f;

template <class T>
inline T edgeWeight(T difference, const EdgeRule& rule) {
  const T smallest = T{} + rule.smallest;
  const T largest = T{} + rule.largest;
  const T atMost = difference < largest ? difference : largest;
  return rule.coefficient / (smallest < difference ? atMost : smallest);
}

template <class T>
inline T axisWeight(T a, T b, const EdgeRule& rule) {
  return edgeWeight(absolute(a - b), rule);
}

template <class T>
inline T diagonalWeight(T a, T b, const EdgeRule& rule) {
  return edgeWeight(absolute(a - b) * inverseRootTwo, rule) * 0.5f;
}

// Three pixels of a row, or the edges that lead to them.
template <class T>
struct Three {
  T left, middle, right;
};

// A pixel's neighbours and itself, or the edges that lead to them.
template <class T>
struct Around {
  Three<T> above, here, below;
};

// Weights of the edges from one pixel to the row below.
template <bool left, bool right, class T>
inline Three<T> edgesDown(T pixel, const Three<T>& below, const EdgeRule& rule) {
  return {left ? diagonalWeight(below.left, pixel, rule) : T{}, axisWeight(below.middle, pixel, rule),
          right ? diagonalWeight(below.right, pixel, rule) : T{}};
}

// One pixel of L x. The diagonal of L is the negative sum of the pixel's edge weights. Neighbours are left out where the
// image ends.
template <bool left, bool right, bool up, bool down, class T>
inline T stencil(const Around<T>& x, const Around<T>& w) {
  T sum = left ? w.here.left : T{};
  if (right) {
    sum += w.here.right;
  }
  if (up) {
    sum += w.above.middle;
  }
  if (down) {
    sum += w.below.middle;
  }
  if (up && left) {
    sum += w.above.left;
  }
  if (down && right) {
    sum += w.below.right;
  }
  if (up && right) {
    sum += w.above.right;
  }
  if (down && left) {
    sum += w.below.left;
  }
  T result = -sum * x.here.middle;
  if (left) {
    result += w.here.left * x.here.left;
  }
  if (right) {
    result += w.here.right * x.here.right;
  }
  if (up) {
    result += w.above.middle * x.above.middle;
  }
  if (down) {
    result += w.below.middle * x.below.middle;
  }
  if (up && left) {
    result += w.above.left * x.above.left;
  }
  if (down && right) {
    result += w.below.right * x.below.right;
  }
  if (up && right) {
    result += w.above.right * x.above.right;
  }
  if (down && left) {
    result += w.below.left * x.below.left;
  }
  return result;
}

struct RowPlace {
  const float* frozen;
  const float* x;
  int width;
  EdgeRule rule;
  RowEdges here;
  RowEdges next;
  float* out;
};

template <bool left, bool right>
inline Three<float> threeAt(const float* pixel) {
  return {left ? pixel[-1] : 0.0f, pixel[0], right ? pixel[1] : 0.0f};
}

template <bool left, bool right, bool up, bool down, bool known>
inline void applyAt(const RowPlace& row, int c, int weightsFrom) {
  Around<float> x{};
  Around<float> w{};
  x.here = threeAt<left, right>(row.x + c);
  w.here = {left ? row.here.right[c - 1] : 0.0f, 0.0f, right ? row.here.right[c] : 0.0f};
  if (up) {
    x.above = threeAt<left, right>(row.x + c - row.width);
    w.above = {left ? row.here.downRight[c - 1] : 0.0f, row.here.above[c], right ? row.here.downLeft[c + 1] : 0.0f};
  }
  if (down) {
    x.below = threeAt<left, right>(row.x + c + row.width);
  }
  if (down && known) {
    w.below = {row.next.downLeft[c], row.next.above[c], row.next.downRight[c]};
  } else if (down) {
    const float* below = row.frozen + row.width;
    w.below = edgesDown<left, right>(row.frozen[weightsFrom], threeAt<left, right>(below + weightsFrom), row.rule);
    row.next.downLeft[c] = w.below.left;
    row.next.above[c] = w.below.middle;
    row.next.downRight[c] = w.below.right;
    if (right) {
      row.next.right[c] = axisWeight(below[c + 1], below[c], row.rule);
    }
  }
  row.out[c] = stencil<left, right, up, down>(x, w);
}

// Three neighbouring vectors of a row. Of wide ones only the one to the right is read, and the others follow from the one
// before: nearly all reads would touch two cache lines.
class Sliding {
 public:
  Sliding() = default;
  explicit Sliding(const float* pixel) {
    before[lanes - 2] = pixel[-1];
    before[lanes - 1] = pixel[0];
  }

  template <class Access>
  Three<Vector> at(const float* pixel, Access access) {
    const Vector right = access.load(pixel + 1);
    if (lanes < 16) {
      return {access.load(pixel - 1), access.load(pixel), right};
    }
    const Three<Vector> three{following<2>(before, right), following<1>(before, right), right};
    before = right;
    return three;
  }

 private:
  Vector before{};
};

// The columns between the ends of the row. The divisions for the row below and
// the memory reads of the stencil do not wait for each other.
template <bool up, bool down, bool known>
inline void applyBetweenEnds(const RowPlace& given) {
  const RowPlace row = given;
  constexpr int begin = 1;
  const float* const below = row.frozen + row.width;
  Sliding xAbove, xHere(row.x + begin), xBelow, frozenBelow;
  Vector rightBefore{}, downRightBefore{};
  rightBefore[lanes - 1] = row.here.right[begin - 1];
  if (up) {
    xAbove = Sliding(row.x + begin - row.width);
    downRightBefore[lanes - 1] = row.here.downRight[begin - 1];
  }
  if (down) {
    xBelow = Sliding(row.x + begin + row.width);
  }
  if (down && !known) {
    frozenBelow = Sliding(below + begin);
  }
  forVectors(begin, row.width - 1, [&](int c, auto access) {
    Around<Vector> x{};
    Around<Vector> w{};
    x.here = xHere.at(row.x + c, access);
    const Vector right = access.load(row.here.right + c);
    w.here = {following<1>(rightBefore, right), Vector{}, right};
    rightBefore = right;
    if (up) {
      x.above = xAbove.at(row.x + c - row.width, access);
      const Vector downRight = access.load(row.here.downRight + c);
      w.above = {following<1>(downRightBefore, downRight), access.load(row.here.above + c),
                 access.load(row.here.downLeft + c + 1)};
      downRightBefore = downRight;
    }
    if (down) {
      x.below = xBelow.at(row.x + c + row.width, access);
    }
    if (down && known) {
      w.below = {access.load(row.next.downLeft + c), access.load(row.next.above + c),
                 access.load(row.next.downRight + c)};
    } else if (down) {
      const Three<Vector> f = frozenBelow.at(below + c, access);
      w.below = edgesDown<true, true>(access.load(row.frozen + c), f, row.rule);
      access.store(w.below.left, row.next.downLeft + c);
      access.store(w.below.middle, row.next.above + c);
      access.store(w.below.right, row.next.downRight + c);
      access.store(axisWeight(f.right, f.middle, row.rule), row.next.right + c);
    }
    access.store(stencil<true, true, up, down>(x, w), row.out + c);
  });
}

template <bool up, bool down, bool known>
void applyAlongRow(const RowPlace& row) {
  const int last = row.width - 1;
  if (row.width == 1) {
    applyAt<false, false, up, down, known>(row, 0, 0);
    return;
  }
  // On purpose: pixel 0 takes the edge weights of pixel 1. Results depend on it.
  const int weightsFrom = !up && row.width > 2 ? 1 : 0;
  applyAt<false, true, up, down, known>(row, 0, weightsFrom);
  applyBetweenEnds<up, down, known>(row);
  applyAt<true, false, up, down, known>(row, last, last);
}

template <bool known>
void applyRow(const float* frozen, const float* x, int width, int height, int y, const EdgeRule& rule,
              const RowEdges& here, const RowEdges& next, float* out) {
  const long begin = static_cast<long>(y) * width;
  const RowPlace row{frozen + begin, x + begin, width, rule, here, next, out + begin};
  const bool first = y == 0;
  const bool last = y == height - 1;
  if (first && last) {
    applyAlongRow<false, false, known>(row);
  } else if (first) {
    applyAlongRow<false, true, known>(row);
  } else if (last) {
    applyAlongRow<true, false, known>(row);
  } else {
    applyAlongRow<true, true, known>(row);
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
  kernels.applyRow = applyRow<false>;
  kernels.applyKnownRow = applyRow<true>;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
