#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

namespace detail {
template <class Mask>
class SparseOperators;
}

/// The linear operators between one low-resolution frame and the padded high-resolution grid, and the box filter of
/// the registration; SrFloatConvolution and SrFloatNeonConvolution are the two forms, which differ in the mask's element
/// type and in how the case of factor 2 is computed, not in the results' bits.
///
/// The padded grid is the high-resolution grid enlarged by the PSF size K less one in each direction: `paddedHeight` =
/// hrHeight + K - 1 rows of `paddedWidth` = hrWidth + K - 1 columns. Low-resolution images have
/// `lowHeight` = (int)(hrHeight / factor) rows of `lowWidth` = (int)(hrWidth / factor) columns. All images are dense,
/// row-major arrays of floats. The PSF of a frame is separable: psfY[ky] * psfX[kx].
///
/// Sums have a fixed order: each output element gets its terms by ascending tap, first of one direction, then
/// of the other. Terms of a tap that is 0 may be left out, which only shows where a value is not finite: the one form may
/// then have NaN where the other has none. An object serves one thread at a time.
template <class Weight>
class MOVRA_SUPERRESOLUTION_API SparseConvolution {
 public:
  /// One element per low-resolution pixel, the weight of its sample: a float, or a byte taken as a signed number.
  using Mask = Weight;

  /// @param hrWidth  columns of the high-resolution image
  /// @param hrHeight its rows
  /// @param psfWidth  taps of the PSF along a row (6 for factor 2)
  /// @param psfHeight along a column
  /// @param factor              up-scaling factor; 2 is the fast case
  /// @throws std::bad_array_new_length if a size is negative or too large
  SparseConvolution(int hrWidth, int hrHeight, int psfWidth, int psfHeight, float factor);
  ~SparseConvolution();
  SparseConvolution(const SparseConvolution&) = delete;
  SparseConvolution& operator=(const SparseConvolution&) = delete;

  /// Transpose of the masked imaging model: spreads each masked sample over the padded grid.
  /// Sample (r, x) reaches rows 2r .. 2r + K - 1 and columns F x .. F x + K - 1, F = (int)factor; the row stride is 2
  /// whatever the factor.
  /// @param image low-resolution frame, lowHeight x lowWidth
  /// @param psfX the frame's PSF along a row
  /// @param psfY along a column
  /// @param mask weights, lowHeight x lowWidth
  /// @param out  paddedHeight x paddedWidth, overwritten
  void fullConvFromSparse(float* image, float* psfX, float* psfY, Mask* mask, float* out);

  /// Imaging model: out(r, x) = sum over ky, kx of psfY[ky] psfX[kx] hr(2r + ky, F x + kx).
  /// @param hr   padded high-resolution image, paddedHeight x paddedWidth
  /// @param psfX the frame's PSF along a row
  /// @param psfY along a column
  /// @param out  lowHeight x lowWidth, overwritten
  void validCorrToSparse(float* hr, float* psfX, float* psfY, float* out);

  /// Box filter of half width `radius` with a window that shrinks at the borders: the mean over the part of the
  /// (2 radius + 1)^2 neighbourhood inside the image, by running sums along rows, then along columns.
  /// Radius 0 copies. `out` is created with the size of `in`; the images may be the same.
  static void blurImageMeanFilter(cv::Mat_<float>& in, int radius, cv::Mat_<float>& out);

 private:
  std::unique_ptr<detail::SparseOperators<Mask>> operators;
};

extern template class SparseConvolution<char>;
extern template class SparseConvolution<float>;

}  // namespace movra::vision
