#pragma once

#include "vision/superresolution/detail/operators/SparseGrid.h"

namespace movra::vision::detail {

/// The sparse PSF operators as plain loops, for any grid: the tap outermost, then rows, then columns, which is
/// the order in which each element gets its terms. Whatever is faster has to give the same bits.
struct PlainOperators {
  SparseGrid grid;
  Index paddedWidth;
  Index paddedHeight;
  Index psfWidth;
  Index psfHeight;
  const float* psfX;
  const float* psfY;

  /// Masked transpose of the imaging model.
  /// @param image, mask grid.height x grid.width; the mask has floats or signed bytes as weights
  /// @param columns     scratch, paddedHeight x grid.width
  /// @param out         paddedHeight x paddedWidth, overwritten
  template <class Mask>
  void fullConvFromSparse(const float* image, const Mask* mask, float* columns, float* out) const;

  /// Imaging model.
  /// @param hr      paddedHeight x paddedWidth
  /// @param columns scratch, paddedHeight x grid.width
  /// @param out     grid.height x grid.width, overwritten
  void validCorrToSparse(const float* hr, float* columns, float* out) const;
};

}  // namespace movra::vision::detail
