#pragma once

#include "vision/superresolution/detail/AlignedArray.h"
#include "vision/superresolution/detail/SolverKernels.h"

namespace movra::vision::detail {

/// The total-variation operator L on the padded image: a graph Laplacian over the eight neighbours of each pixel, its
/// edge weights frozen at an image.
class TvTerm {
 public:
  TvTerm(int paddedWidth, int paddedHeight, std::size_t slack)
      : width(paddedWidth),
        height(paddedHeight),
        right(makeWeights(slack)),
        down(makeWeights(slack)),
        downLeft(makeWeights(slack)),
        downRight(makeWeights(slack)) {}

  /// Weights coefficient / clamp(|difference|) from the differences between the neighbours of x.
  void freezeAt(const float* x, const EdgeRule& rule) { freezeRows(x, rule, 0, height); }

  /// The same for the edges that start in rows [begin, end).
  void freezeRows(const float* x, const EdgeRule& rule, int begin, int end) {
    for (int y = begin; y < end; ++y) {
      solverKernels().edgeWeightsOfRow(x, width, height, y, rule, weights());
    }
  }

  /// Rows [begin, end) of L x.
  void applyRows(const float* x, int begin, int end, float* out) const {
    for (int y = begin; y < end; ++y) {
      solverKernels().stencilRow(x, width, height, y, weights(), out);
    }
  }

 private:
  AlignedFloats makeWeights(std::size_t slack) const {
    return makeAlignedFloats(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) + slack);
  }
  EdgeWeights weights() const { return {right.get(), down.get(), downLeft.get(), downRight.get()}; }

  int width;
  int height;
  AlignedFloats right;
  AlignedFloats down;
  AlignedFloats downLeft;
  AlignedFloats downRight;
};

/// Vectors of the conjugate-gradient solver, padded images.
struct SolverVectors {
  SolverVectors(std::size_t size, std::size_t slack)
      : rhs(makeAlignedFloats(size + slack)),
        estimate(makeAlignedFloats(size + slack)),
        residual(makeAlignedFloats(size + slack)),
        direction(makeAlignedFloats(size + slack)),
        directionImage(makeAlignedFloats(size + slack)) {}

  AlignedFloats rhs;             // b
  AlignedFloats estimate;        // x
  AlignedFloats residual;        // r
  AlignedFloats direction;       // p
  AlignedFloats directionImage;  // q = A p
};

}  // namespace movra::vision::detail
