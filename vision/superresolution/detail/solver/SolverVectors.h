#pragma once

#include <utility>

#include "vision/superresolution/detail/base/AlignedArray.h"

namespace movra::vision::detail {

/// Vectors of the conjugate-gradient solver, padded images. They change places instead of being copied.
class SolverVectors {
 public:
  SolverVectors(std::size_t size, std::size_t slack)
      : rhsArray(makeAlignedFloats(size + slack)),
        estimateArrays{makeAlignedFloats(size + slack), makeAlignedFloats(size + slack)},
        residualArray(makeAlignedFloats(size + slack)),
        directionArray(makeAlignedFloats(size + slack)),
        directionImageArray(makeAlignedFloats(size + slack)),
        estimateNow(estimateArrays[0].get()) {}

  float* rhs() { return rhsArray.get(); }                        // b
  float* estimate() { return estimateNow; }                      // x
  float* residual() { return residualArray.get(); }              // r
  float* directionImage() { return directionImageArray.get(); }  // q = A p

  /// p, which is r itself in the first iteration of a solve.
  float* direction() { return directionIsResidual ? residual() : directionArray.get(); }

  /// Makes rhs() writable: if the edge weights are frozen at it, its array is kept and another one takes its place.
  void renewRhs(const float* frozen) {
    if (frozen == rhs()) {
      std::swap(rhsArray, estimateArrays[0]);
    }
  }

  void startAtRhs() { estimateNow = rhs(); }
  float* startElsewhere() { return estimateNow = estimateArrays[0].get(); }  // to be written
  void startAlongResidual() { directionIsResidual = true; }

  /// Where the next estimate goes: another array while the present one is in use as `frozen` or is the right-hand side.
  float* nextEstimate(const float* frozen) {
    if (estimateNow != frozen && estimateNow != rhs()) {
      return estimateNow;
    }
    return estimateArrays[frozen == estimateArrays[0].get() ? 1 : 0].get();
  }

  /// Where the next residual goes: not over the direction.
  float* nextResidual() { return directionIsResidual ? directionArray.get() : residual(); }

  /// The next estimate and residual are written and become the present ones.
  void advance(float* nextEstimateArray) {
    estimateNow = nextEstimateArray;
    if (directionIsResidual) {
      std::swap(residualArray, directionArray);
      directionIsResidual = false;
    }
  }

 private:
  AlignedFloats rhsArray;
  AlignedFloats estimateArrays[2];
  AlignedFloats residualArray;
  AlignedFloats directionArray;
  AlignedFloats directionImageArray;
  float* estimateNow;  // one of the two, or the right-hand side
  bool directionIsResidual = false;
};

}  // namespace movra::vision::detail
