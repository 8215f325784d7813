#pragma once

namespace movra::vision::detail {

/// Kernels of the conjugate-gradient solver on images as flat arrays. `sums` are the partial sums (Sums.h) of a sum over the
/// whole image, to which the range [begin, end) is added.
struct SolverKernels {
  /// Sum of a b.
  void (*addProducts)(const float* a, const float* b, int begin, int end, float* sums);

  /// Start of a solve: r = b - r; sum of r^2.
  void (*startResidual)(const float* b, float* r, int begin, int end, float* sums);

  /// Step along the direction: newR = r - alpha q, in place or not; sum of newR^2.
  void (*reduceResidual)(float alpha, const float* q, const float* r, float* newR, int begin, int end, float* sums);

  /// The same step of the estimate: newX = x + alpha p, in place or not.
  void (*stepAlong)(float alpha, const float* p, const float* x, float* newX, int begin, int end);

  /// Next direction of the search: p = beta p + r.
  void (*updateDirection)(float beta, const float* r, float* p, int begin, int end);

  /// Sum in double of the float squares.
  void (*addSquares)(const float* a, int begin, int end, double* sums);

  /// Sums in double over a whole image: of the values, of the squared deviations from `mean`.
  void (*addValues)(const float* a, int size, double* sums);
  void (*addSquaredDeviations)(const float* a, int size, double mean, double* sums);

  /// a = (a - mean) / deviation.
  void (*normalise)(float mean, float deviation, float* a, int size);
};

/// The kernels of the active instruction set.
const SolverKernels& solverKernels();

}  // namespace movra::vision::detail
