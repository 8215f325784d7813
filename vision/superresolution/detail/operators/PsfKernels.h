#pragma once

namespace movra::vision::detail {

/// Row kernels of the sparse PSF operators at factor 2 with six taps in each direction.
///
/// A row of the padded grid is split into its even columns E and its odd columns O, so that every loop has unit stride:
/// low-resolution column x sees the six padded columns E[x] O[x] E[x+1] O[x+1] E[x+2] O[x+2].
/// Rows are `width` low-resolution columns long. Each sum has its terms by ascending tap, as the plain loops have.
struct PsfKernels {
  /// Row of the padded grid, 2 width + 5 columns -> width + 3 even and width + 2 odd ones.
  void (*splitColumns)(const float* row, int width, float* even, float* odd);

  /// The reverse.
  void (*mergeColumns)(const float* even, const float* odd, int width, float* row);

  /// Takes padded rows 2s and 2s + 1 through the imaging model: adds them to the low-resolution rows that they
  /// contribute to, s - 2, s - 1 and s, of which s - 2 is then complete. The sign of a zero in it is open.
  /// @param even, odd  columns of the two rows: [0] of row 2s, [1] of row 2s + 1
  /// @param psfX, psfY six taps each
  /// @param older      sum of row s - 2 so far; holds that of row s - 1 afterwards
  /// @param newer      sum of row s - 1 so far; holds that of row s afterwards
  /// @param complete   row s - 2
  void (*imageRowPair)(const float* const even[2], const float* const odd[2], int width, const float* psfX,
                       const float* psfY, float* older, float* newer, float* complete);

  /// weighted[x] = mask[x] * row[x], the mask taken as signed bytes; in place if they are the same.
  void (*weightRow)(const char* mask, const float* row, int width, float* weighted);

  /// True when weighting by this mask changes nothing.
  bool (*isAllOnes)(const char* mask, int width);

  /// Transpose: adds what low-resolution rows r, r - 1 and r - 2 give to padded rows 2r and 2r + 1, which are split.
  /// Rows are spread along columns, then the two rows that this makes along themselves.
  void (*addSpread)(const float* row, const float* rowBefore, const float* rowBeforeThat, int width, const float* psfX,
                    const float* psfY, float* const even[2], float* const odd[2]);
};

/// The kernels of the active instruction set.
const PsfKernels& psfKernels();

}  // namespace movra::vision::detail
