#pragma once

#include "vision/superresolution/detail/base/AlignedArray.h"

namespace movra::vision::detail {

/// The sparse PSF operators at factor 2 with six taps and float masks, in vectors of four floats.
///
/// Low-resolution images have lowHeight x lowWidth floats, padded ones (2 lowHeight + 5) x (2 lowWidth + 5), dense and
/// row-major. Each element gets its terms in the order of PlainOperators, so the results have the same bits for finite
/// data. One pass over the images, with the rows between the two directions in cache.
///
/// The last vector of a row may hang over the row's end, but never over the array's: the last row and the last column
/// of the padded grid belong to no sample, and are room enough.
class NeonOperators {
 public:
  static constexpr int taps = 6;

  NeonOperators(int lowWidth, int lowHeight);

  /// Masked transpose of the imaging model.
  /// @param image, mask low-resolution
  /// @param out         padded, overwritten
  void fullConvFromSparse(const float* image, const float* psfX, const float* psfY, const float* mask, float* out);

  /// Imaging model.
  /// @param hr  padded
  /// @param out low-resolution, overwritten
  void validCorrToSparse(const float* hr, const float* psfX, const float* psfY, float* out);

 private:
  const float* sampleRowOrZeros(int r) const;

  int lowWidth;
  int lowHeight;
  std::size_t stride;  // of the rows below
  AlignedFloats rows;  // zero before and after their lowWidth floats
  float* older;        // sums of the two low-resolution rows that are not complete
  float* newer;
  float* complete;    // the row that is
  float* samples[3];  // masked low-resolution rows r, at r mod 3
  float* zeros;
  float* intermediate;  // row between the two halves of the transpose
};

}  // namespace movra::vision::detail
