#pragma once

namespace movra::vision::detail {

/// Number of partial sums of every sum over an image: number l has the elements i with i mod 16 = l in ascending order.
constexpr int sumLanes = 16;

/// Kernels of the conjugate-gradient solver on images as flat arrays. `lanes` are the partial sums of a sum over the whole
/// image, to which the range [begin, end) is added.
struct SolverKernels {
  /// Sum of a b.
  void (*addProducts)(const float* a, const float* b, int begin, int end, float* lanes);

  /// Start of a solve: r = b - r; sum of r^2.
  void (*startResidual)(const float* b, float* r, int begin, int end, float* lanes);

  /// Step along the direction: newX = x + alpha p and newR = r - alpha q, each in place or not; sum of newR^2.
  void (*stepAlong)(float alpha, const float* p, const float* q, const float* x, float* newX, const float* r,
                    float* newR, int begin, int end, float* lanes);

  /// Next direction: p = beta p + r.
  void (*turnDirection)(float beta, const float* r, float* p, int begin, int end);

  /// Sum in double of the float squares.
  void (*addSquares)(const float* a, int begin, int end, double* lanes);

  /// Sums in double over a whole image: of the values, of the squared deviations from `mean`.
  void (*addValues)(const float* a, int size, double* lanes);
  void (*addSquaredDeviations)(const float* a, int size, double mean, double* lanes);

  /// a = (a - mean) / deviation.
  void (*normalise)(float mean, float deviation, float* a, int size);
};

/// The kernels of the active instruction set.
const SolverKernels& solverKernels();

/// Combines the partial sums: l with l + 8, then with l + 4, l + 2, l + 1.
template <class T>
T combineLanes(const T* lanes) {
  T sums[sumLanes];
  for (int l = 0; l < sumLanes; ++l) {
    sums[l] = lanes[l];
  }
  for (int half = sumLanes / 2; half > 0; half /= 2) {
    for (int l = 0; l < half; ++l) {
      sums[l] = sums[l] + sums[l + half];
    }
  }
  return sums[0];
}

}  // namespace movra::vision::detail
