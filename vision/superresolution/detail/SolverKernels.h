#pragma once

namespace movra::vision::detail {

/// Number of partial sums of every sum over an image: number l has the elements i with i mod 16 = l in ascending order.
constexpr int sumLanes = 16;

/// Weights of the edges between neighbouring pixels of a dense image: from pixel i to the right, downward, down-left and
/// down-right. Edges that would leave the image have weight 0.
struct EdgeWeights {
  float* right;
  float* down;
  float* downLeft;
  float* downRight;
};

/// Limits and scale of the edge weights: weight = coefficient / clamp(difference).
struct EdgeRule {
  float coefficient;
  float smallest;
  float largest;
};

/// Kernels of the total-variation operator and of the conjugate-gradient solver, on dense images with `width` columns.
/// Ranges [begin, end) are flat pixel indices; `lanes` are the partial sums of a sum over the whole image, to which a
/// range is added.
struct SolverKernels {
  /// Weights of the edges that start in row `y` of x.
  void (*edgeWeightsOfRow)(const float* x, int width, int height, int y, const EdgeRule& rule,
                           const EdgeWeights& weights);

  /// Row `y` of L x.
  void (*stencilRow)(const float* x, int width, int height, int y, const EdgeWeights& weights, float* out);

  /// Sum of a b.
  void (*addProducts)(const float* a, const float* b, int begin, int end, float* lanes);

  /// Start of a solve: r = b - r and p = r; sum of r^2.
  void (*startResidual)(const float* b, float* r, float* p, int begin, int end, float* lanes);

  /// Step along the direction: x = x + alpha p and r = r - alpha q; sum of r^2.
  void (*stepAlong)(float alpha, const float* p, const float* q, float* x, float* r, int begin, int end,
                    float* lanes);

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
