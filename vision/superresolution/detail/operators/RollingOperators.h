#pragma once

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/operators/PsfKernels.h"

namespace movra::vision::detail {

/// The sparse PSF operators at factor 2 with six taps, row by row, for several frames side by side.
///
/// Rows of the padded image x enter in pairs s = 0, 1, ...; the rows of the result leave in pairs b. Between them only
/// the rows that are still needed are kept, so that everything stays in the first cache levels:
///
///     x rows 2s, 2s+1 --split--> even | odd columns           shared by all frames
///          --image (psfX, then psfY)--> sample row s-2         rows s-1 and s wait half summed (older, newer)
///          --mask--> ring of sample rows b, b-1, b-2
///          --add spread (psfY, then psfX)--> even | odd columns --merge--> result rows 2b, 2b+1
///
/// A sample row is complete when pair s = b + 2 has entered. Result pairs run to b = lowHeight + 2, whose second row does
/// not exist: the padded image has 2 lowHeight + 5 rows of 2 lowWidth + 5 columns.
class RollingOperators {
 public:
  static constexpr int taps = 6;

  /// Whether these operators serve the geometry: factor 2, six taps each way, even sizes.
  static bool serve(int hrWidth, int hrHeight, int psfWidth, int psfHeight, float factor);

  RollingOperators(int lowWidth, int lowHeight, int frameCount);

  int inputPairs() const { return lowHeight + 2; }
  int outputPairs() const { return lowHeight + 3; }

  /// Row pair s of the padded image enters.
  void enter(const float* x, int s);

  /// Takes the pair that entered last through frame k's imaging model, which completes `sampleRow`, row s - 2 (there is
  /// none for the first two pairs: see discarded()).
  void image(int k, const float* psfX, const float* psfY, float* sampleRow);

  /// Scratch row for output that is not used: the first two pairs complete no sample row.
  float* discarded() { return discardedRow; }

  /// Place of frame k's masked sample row r, for r in 0 ... lowHeight - 1; row r - 3 is overwritten.
  float* sampleRow(int k, int r);

  /// Opens result pair b: with the rows already in `out`, or with zeros.
  void openOnto(const float* out, int b);
  void openOntoZeros();

  /// Adds frame k's sample rows, spread, to the open pair b.
  void spread(int k, int b, const float* psfX, const float* psfY);

  /// Writes the open pair to rows 2b and 2b + 1 of `out`.
  void close(float* out, int b) const;

 private:
  float* frameRow(int k, int row) {
    return frameRows.get() + (static_cast<std::size_t>(k) * rowsPerFrame + row) * stride;
  }
  const float* sampleRowOrZeros(int k, int r);
  bool hasSecondRow(int b) const { return b < lowHeight + 2; }

  static constexpr std::size_t rowsPerFrame = 5;  // older, newer, ring of three sample rows
  static constexpr int ringStart = 2;

  const PsfKernels* kernels;  // of the instruction set when the pair entered, or was opened
  int lowWidth;
  int lowHeight;
  int paddedWidth;
  std::size_t stride;       // of all rows below, with room for the columns beyond lowWidth
  AlignedFloats frameRows;  // rowsPerFrame rows per frame
  AlignedFloats sharedRows;
  float* even[2];  // columns of the pair that entered
  float* odd[2];
  float* evenSum[2];  // columns of the open pair
  float* oddSum[2];
  float* discardedRow;
  float* zeros;
};

}  // namespace movra::vision::detail
