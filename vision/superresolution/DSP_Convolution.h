#pragma once

#include <memory>

#include "movra/Export.h"

namespace movra::vision {

/// The imaging operator and its masked transpose in integer arithmetic, for processors without fast floats.
///
/// T is `short` (16-bit samples and taps) or `int` (32-bit); sizes are of type T too. A low-resolution frame
/// has lh rows x lw columns with lw = (int)(hrWidth / factor), lh = (int)(hrHeight / factor). The padded grid
/// has hrHeight + psfHeight - 1 rows x hrWidth + psfWidth - 1 columns. The taps of the point-spread function
/// (PSF) are fixed-point numbers with 15 fractional bits: 32768 stands for 1.
///
/// Nothing saturates: products are computed in int, sums in T, and both wrap around.
///
/// All images are row-major without padding between rows and belong to the caller. The object owns one
/// scratch buffer, made by the constructor; it serves one thread at a time.
template <typename T>
class MOVRA_SUPERRESOLUTION_API DSP_Convolution {
 public:
  /// Makes operators between a high-resolution grid of hrHeight rows x hrWidth columns and low-resolution
  /// frames.
  ///
  /// Sizes may be 0. A factor below 1, or not a number, leaves frames of no pixels.
  ///
  /// @param psfWidth  horizontal taps
  /// @param psfHeight vertical taps
  /// @param factor    high-resolution pixels per low-resolution pixel, in each direction
  /// @throws movra::Exception if a size is negative or a size of the padded grid does not fit T
  /// @throws std::bad_alloc if there is no memory for the scratch buffer
  DSP_Convolution(T hrWidth, T hrHeight, T psfWidth, T psfHeight, float factor);

  /// Sets the divisor of every product in validCorrToSparse: 32768 for 15 fractional bits if T is `int`;
  /// 32767 comes nearest to it if T is `short`. It has no default.
  void setFilterScale(T scale);

  /// Imaging operator: every sample of out becomes the PSF-weighted sum of the padded grid under its
  /// rectangle, first along rows, then along columns. Every product is divided by the filter scale on its
  /// own, towards zero.
  ///
  /// @param hr   padded grid
  /// @param psfX psfWidth horizontal taps
  /// @param psfY psfHeight vertical taps
  /// @param out  lh x lw frame, overwritten; must not overlap the inputs
  /// @return no meaning
  /// @throws movra::Exception if the filter scale is 0 or was never set
  int validCorrToSparse(T* hr, T* psfX, T* psfY, T* out);

  /// Transpose of the imaging operator, applied to the masked frame, for factor 2 and PSFs of 6 taps only,
  /// whatever the constructor was told.
  ///
  /// Polyphase form: each of the four positions that an output pixel can have relative to the low-resolution
  /// grid is one 3 x 3 correlation of the frame, with a shift of 15. If T is `short`, the sums wrap around at
  /// 16 bits before they are shifted, which leaves only their sign: 0 or -1.
  ///
  /// @param image lh x lw frame
  /// @param psfX  6 horizontal taps
  /// @param psfY  6 vertical taps
  /// @param mask  lh x lw weights, signed bytes; 1 keeps a sample, 0 leaves it out
  /// @param out   (2 * lh + 5) x (2 * lw + 5) image, the padded grid at factor 2; its last row and its last
  ///              column keep what they hold, the rest is overwritten; must not overlap the inputs
  /// @return no meaning
  /// @throws std::bad_alloc if there is no memory for the padded frame and the phase images
  /// @throws movra::Exception if lh or lw is within 4 of the largest int
  int fullConvFromSparse(T* image, T* psfX, T* psfY, char* mask, T* out);

  /// One run of a 3 x 3 correlation over an image taken as one long row, for i = 0 ... count - 1:
  ///
  ///     dst[i] = (sum over a, b = 0 ... 2 of src[i + b + a * pitch] * kernel[3 * a + b]) >> shift
  ///
  /// Products and sums wrap around at the width of T, then the shift, which keeps the sign, follows.
  ///
  /// @param src   count + 2 + 2 * pitch elements
  /// @param dst   count elements; must not overlap src
  /// @param count nothing is done if it is below 1
  /// @param pitch elements from one image row to the next
  /// @param shift more than 31 counts as 31, less than 0 as 0
  static void ImgConv3x3I16sC16s(const T* src, T* dst, short count, short pitch, const T* kernel, T shift);

 private:
  T hrWidth;
  T hrHeight;
  T psfWidth;
  T psfHeight;
  T paddedWidth;
  T paddedHeight;
  float factor;
  std::unique_ptr<T[]> columnBuffer;
  T filterScale = 0;
};

extern template class DSP_Convolution<short>;
extern template class DSP_Convolution<int>;

}  // namespace movra::vision
