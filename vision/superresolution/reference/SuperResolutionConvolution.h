#pragma once

#include <memory>

#include "movra/Export.h"

namespace movra::vision {

namespace detail {
struct PlainOperators;
}

/// Imaging operator, its masked transpose and a box filter of the reference engine, for any integer factor.
///
/// A low-resolution frame has lh rows x lw columns with lw = (int)(hrWidth / factor), lh = (int)(hrHeight /
/// factor). The padded grid has hrHeight + psfHeight - 1 rows x hrWidth + psfWidth - 1 columns: the
/// high-resolution grid and the border that the point-spread function (PSF) reaches. Low-resolution sample
/// (r, x) covers the psfHeight x psfWidth rectangle of the padded grid whose top left corner is (factor * r,
/// factor * x), with the separable weights psfY[ky] * psfX[kx].
///
/// These are plain loops whose order of float operations is fixed: the faster operators of the other engines
/// are measured against them, bit for bit.
///
/// All images are row-major without padding between rows and belong to the caller. The object owns one
/// scratch buffer, made by the constructor; it serves one thread at a time.
class MOVRA_SUPERRESOLUTION_API SuperResolutionConvolution {
 public:
  using Mask = char;

  /// Makes operators between a high-resolution grid of hrHeight rows x hrWidth columns and low-resolution
  /// frames.
  ///
  /// Sizes may be 0. A factor below 1, or not a number, leaves frames of no pixels.
  ///
  /// @param psfWidth  horizontal taps
  /// @param psfHeight vertical taps
  /// @param factor    high-resolution pixels per low-resolution pixel, in each direction
  /// @throws std::bad_array_new_length if a size is negative or the padded grid is too large for int sizes
  /// @throws std::bad_alloc if there is no memory for the scratch buffer
  SuperResolutionConvolution(int hrWidth, int hrHeight, int psfWidth, int psfHeight, float factor);

  /// Transpose of the imaging operator, applied to the masked frame: out becomes the sum of the frame's
  /// samples, each weighted by its mask and spread over its rectangle.
  ///
  /// @param image lh x lw frame
  /// @param psfX  psfWidth horizontal taps
  /// @param psfY  psfHeight vertical taps
  /// @param mask  lh x lw weights, signed bytes; 1 keeps a sample, 0 leaves it out
  /// @param out   padded grid, overwritten; must not overlap the inputs
  /// @return no meaning
  int fullConvFromSparse(float* image, float* psfX, float* psfY, char* mask, float* out);

  /// Imaging operator: every sample of out becomes the PSF-weighted sum of the padded grid under its
  /// rectangle.
  ///
  /// @param hr   padded grid
  /// @param psfX psfWidth horizontal taps
  /// @param psfY psfHeight vertical taps
  /// @param out  lh x lw frame, overwritten; must not overlap the inputs
  /// @return no meaning
  int validCorrToSparse(float* hr, float* psfX, float* psfY, float* out);

  /// Box filter with running sums: every pixel becomes the mean of the (2 * radius + 1)^2 pixels around it;
  /// at the borders, of those that lie inside the image.
  ///
  /// A radius of 0 or less copies the image. A radius beyond the image takes the whole row or column.
  ///
  /// @param in  hrHeight x hrWidth image
  /// @param out hrHeight x hrWidth result; may be `in`
  /// @return no meaning
  float sameConvOnes(float* in, int radius, float* out);

 private:
  detail::PlainOperators operators(const float* psfX, const float* psfY) const;

  int hrWidth;
  int hrHeight;
  int psfWidth;
  int psfHeight;
  int paddedWidth;
  int paddedHeight;
  float factor;
  std::unique_ptr<float[]> buffer;
};

}  // namespace movra::vision
