#pragma once

#include <cstddef>

namespace movra::vision::detail {

/// Turns rows into columns, so that what goes along rows can run for many rows side by side.
struct TransposeKernels {
  /// out(column, row) = in(row, column); pitches are floats from row to row.
  void (*transpose)(const float* in, std::ptrdiff_t inPitch, int rows, int columns, float* out,
                    std::ptrdiff_t outPitch);
};

/// The kernels of the active instruction set.
const TransposeKernels& transposeKernels();

}  // namespace movra::vision::detail
