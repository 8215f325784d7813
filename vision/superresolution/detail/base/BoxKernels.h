#pragma once

namespace movra::vision::detail {

/// Rows that the box filter takes at once.
constexpr int boxRows = 16;

/// Kernels of BoxFilter.
struct BoxKernels {
  /// Box filter along `boxRows` rows at once, given and returned side by side: element i of row l at 16 i + l.
  void (*filterAlongRows)(const float* in, int length, int radius, float* out);

  /// sums += row
  void (*addRow)(const float* row, int columns, float* sums);

  /// sums -= row
  void (*subtractRow)(const float* row, int columns, float* sums);

  /// out = sums / divisor
  void (*divideRow)(const float* sums, float divisor, int columns, float* out);

  /// A whole window in one pass: sums += entering, out = sums * reciprocal, sums -= leaving.
  void (*slideRow)(const float* entering, const float* leaving, float reciprocal, int columns, float* sums, float* out);
};

/// The kernels of the active instruction set.
const BoxKernels& boxKernels();

}  // namespace movra::vision::detail
