#pragma once

#include <algorithm>

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/solver/TvKernels.h"

namespace movra::vision::detail {

/// The total-variation operator L on the padded image: a graph Laplacian over the eight neighbours of each pixel, its
/// edge weights coefficient / clamp(|difference|) frozen at an image.
///
/// The weights of a large image are made anew whenever they are needed, row by row: four divisions per pixel cost less time
/// than four images of weights from memory. Those of a small one are kept: they come from the cache.
class TvTerm {
 public:
  TvTerm(int paddedWidth, int paddedHeight)
      : width(paddedWidth),
        height(paddedHeight),
        stride(static_cast<std::size_t>(alignedWidth(paddedWidth))),
        edgeRowCount(sizeOfRows(static_cast<std::size_t>(paddedHeight) + 1) <= mostKept
                         ? static_cast<std::size_t>(paddedHeight) + 1
                         : 2),
        edgeRows(makeAlignedFloats(sizeOfRows(edgeRowCount))) {}

  /// Freezes the weights at x, which has to stay as it is while they are in use.
  void freezeAt(const float* x, const EdgeRule& givenRule) {
    frozen = x;
    rule = givenRule;
    edgesAreKnown = false;
  }

  /// Image at which the weights are frozen.
  const float* frozenAt() const { return frozen; }

  /// Rows [begin, end) of L x, for consecutive ranges from row 0 on.
  void applyRows(const float* x, int begin, int end, float* out) {
    if (frozen == nullptr) {
      std::fill(out + begin * width, out + end * width, 0.0f);  // no weights yet
      return;
    }
    if (begin == 0 && !edgesAreKnown) {
      tvKernels().edgesOfFirstRow(frozen, width, rule, edgesOf(0));
    }
    const auto apply = edgesAreKnown ? tvKernels().applyKnownRow : tvKernels().applyRow;
    for (int y = begin; y < end; ++y) {
      apply(frozen, x, width, height, y, rule, edgesOf(y), edgesOf(y + 1), out);
    }
    edgesAreKnown = edgesAreKnown || (end == height && edgeRowCount > 2);
  }

 private:
  static constexpr std::size_t arraysPerRow = 4;
  static constexpr std::size_t cacheLine = 16;  // floats

  static constexpr std::size_t mostKept = std::size_t{1} << 17;  // floats

  std::size_t sizeOfRows(std::size_t count) const { return count * arraysPerRow * stride + cacheLine; }

  RowEdges edgesOf(int y) {
    // Vectors start at column 1, so this one begins a cache line.
    float* first = edgeRows.get() + static_cast<std::size_t>(y) % edgeRowCount * arraysPerRow * stride + cacheLine - 1;
    return {first, first + stride, first + 2 * stride, first + 3 * stride};
  }

  int width;
  int height;
  std::size_t stride;
  std::size_t edgeRowCount;  // all of them or two
  AlignedFloats edgeRows;
  bool edgesAreKnown = false;  // all of them
  const float* frozen = nullptr;
  EdgeRule rule{};
};

}  // namespace movra::vision::detail
