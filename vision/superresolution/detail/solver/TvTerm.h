#pragma once

#include <algorithm>
#include <utility>

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/solver/TvKernels.h"

namespace movra::vision::detail {

/// The total-variation operator L on the padded image: a graph Laplacian over the eight neighbours of each pixel, its
/// edge weights coefficient / clamp(|difference|) frozen at an image.
///
/// The weights are made anew whenever they are needed, row by row: four divisions per pixel cost less time than four
/// images of weights from memory.
class TvTerm {
 public:
  TvTerm(int paddedWidth, int paddedHeight)
      : width(paddedWidth),
        height(paddedHeight),
        stride(static_cast<std::size_t>(alignedWidth(paddedWidth))),
        edgeRows(makeAlignedFloats(2 * arraysPerRow * stride + cacheLine)),
        here(edgesOf(0)),
        next(edgesOf(1)) {}

  /// Freezes the weights at x, which has to stay as it is while they are in use.
  void freezeAt(const float* x, const EdgeRule& givenRule) {
    frozen = x;
    rule = givenRule;
  }

  /// Image at which the weights are frozen.
  const float* frozenAt() const { return frozen; }

  /// Rows [begin, end) of L x, for consecutive ranges from row 0 on.
  void applyRows(const float* x, int begin, int end, float* out) {
    if (frozen == nullptr) {
      std::fill(out + begin * width, out + end * width, 0.0f);  // no weights yet
      return;
    }
    if (begin == 0) {
      tvKernels().edgesOfFirstRow(frozen, width, rule, here);
    }
    for (int y = begin; y < end; ++y) {
      tvKernels().applyRow(frozen, x, width, height, y, rule, here, next, out);
      std::swap(here, next);
    }
  }

 private:
  static constexpr std::size_t arraysPerRow = 4;
  static constexpr std::size_t cacheLine = 16;  // floats

  RowEdges edgesOf(std::size_t row) {
    // Vectors start at column 1, so this one begins a cache line.
    float* first = edgeRows.get() + row * arraysPerRow * stride + cacheLine - 1;
    return {first, first + stride, first + 2 * stride, first + 3 * stride};
  }

  int width;
  int height;
  std::size_t stride;
  AlignedFloats edgeRows;
  RowEdges here;
  RowEdges next;
  const float* frozen = nullptr;
  EdgeRule rule{};
};

}  // namespace movra::vision::detail
