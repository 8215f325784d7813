#pragma once

namespace movra::vision::detail {

constexpr int blurRadius = 5;
constexpr int blurTaps = 2 * blurRadius + 1;

/// Row kernels of the blur and of the corner strength. Where a product is added to a sum, "fused" tells that it is not
/// rounded before. Inputs of `count` elements are not overlapped by outputs.
struct FilterKernels {
  /// out[x] = taps[0] row[x] + taps[1] row[x + 1] + ... + taps[10] row[x + 10], left to right, fused.
  void (*fusedBlurRow)(const float* row, const float* taps, int count, float* out);

  /// out[x] = taps[5] rows[5][x] + taps[6] (rows[6][x] + rows[4][x]) + ... + taps[10] (rows[10][x] + rows[0][x]), fused.
  /// Widens range[0] ... range[1] to hold all results that are numbers.
  void (*fusedBlurColumns)(const float* const* rows, const float* taps, int count, float* out, float* range);

  /// Elements -1 ... count of a row give difference[x] = row[x + 1] - row[x - 1] and the weighted mean
  /// smooth[x] = 2 scale row[x] + scale (row[x - 1] + row[x + 1]), in which the first product is fused; the second one in
  /// the last column of an odd number.
  void (*fusedDerivativeRow)(const float* row, float scale, int count, float* difference, float* smooth);

  /// Products of the derivatives x = 2 scale differences[1] + scale (differences[0] + differences[2]), in which the
  /// second product is fused, and y = smoothBelow - smoothAbove: x^2 to products[0][1 ...], x y to products[1][1 ...],
  /// y^2 to products[2][1 ...].
  void (*fusedDerivativeProducts)(const float* const* differences, const float* smoothAbove, const float* smoothBelow,
                                  float scale, int count, float* const* products);

  /// sums[x] = products[x] + products[x + 1] + products[x + 2]
  void (*sumThree)(const float* products, int count, double* sums);

  /// For a block's sums of x^2, x y, y^2 over columns: adds the entering row, returns the smaller eigenvalue of the matrix
  /// of half the squares and the mixed product, and takes away the leaving row. Returns the largest result, or -infinity.
  float (*eigenvalueRow)(const double* const* entering, const double* const* leaving, double* const* sums, int count,
                         float* eigenvalues);
};

/// The kernels of the active instruction set.
const FilterKernels& filterKernels();

}  // namespace movra::vision::detail
