#pragma once

#include <cstddef>

namespace movra::vision::detail {

/// Partial sums of every sum in this room: number l has the elements i with i mod 16 = l in ascending order.
constexpr int motionLanes = 16;

/// Sums over a row of the normal equations of an affine motion, in this order; g is the reference's gradient, e the
/// difference reference minus frame, w its weight and x the column's place.
enum NormalSum {
  gxgx,
  gxgy,
  gygy,
  gxgx_x,
  gxgy_x,
  gygy_x,
  gxgx_xx,
  gxgy_xx,
  gygy_xx,  // w g g' times 1, x, x^2
  gx_,
  gy_,
  gx_x,
  gy_x,
  weights_,  // w g times 1, x; w
  gx_e,
  gy_e,
  gx_xe,
  gy_xe,
  e_,  // w e g times 1, x; w e
  normalSums
};

/// Partial sums of a correlation's sums, by the same rule.
constexpr int correlationLanes = 8;

/// Sums of a correlation.
enum CorrelationSum { sumA, sumB, sumAA, sumBB, sumAB, correlationSums };

/// Kernels of the motion estimation.
struct LocalMotionKernels {
  /// out[i] = taps[0] row[i] + sum over j of taps[j] (row[i - j] + row[i + j]), by ascending j.
  void (*blurRow)(const float* row, const float* taps, int radius, int count, float* out);

  /// The same across rows: rows[-radius ... radius].
  void (*blurColumn)(const float* const* rows, const float* taps, int radius, int count, float* out);

  /// Values of the cubic B-spline with the given coefficients at (u + i du, v + i dv), i = 0 ... count - 1. Places outside
  /// are moved to the border of the width x height image; one element before each row and column and two after it can be
  /// read.
  void (*sampleLine)(const float* coefficients, std::ptrdiff_t stride, int width, int height, float u, float v,
                     float du, float dv, int count, float* out);

  /// Adds a row to normalSums x motionLanes sums. Weights are 1 / max(1, |e - centre| / limit), and 0 where `use` is.
  void (*addNormalRow)(const float* gx, const float* gy, const float* e, const float* x, const unsigned char* use,
                       float centre, float limit, int count, float* sums);

  /// gradient[i] = (gx^2 + gy^2), gx and gy the halved central differences; `row` can be read one element beyond its ends.
  void (*squaredGradientRow)(const float* row, const float* above, const float* below, int count, float* gradient);

  /// out[i] = largest of row[i - 2 ... i + 2].
  void (*largestOfFive)(const float* row, int count, float* out);

  /// Sets correlationSums x correlationLanes sums over `count` elements, step apart; both rows are taken less `level`.
  void (*correlateRows)(const float* a, const float* b, int step, int count, float level, float* sums);

  /// out[i] = 1 where both masks, of 0 and 1, are 1, else 0; returns how many are.
  int (*joinMasks)(const char* a, const char* b, int count, char* out);
};

/// The kernels of the active instruction set.
const LocalMotionKernels& localMotionKernels();

}  // namespace movra::vision::detail
