#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "vision/superresolution/Export.h"

namespace movra::vision {

namespace detail {
class NeonOperators;
struct PlainOperators;
}  // namespace detail

/// The operators of SrFloatConvolution with float masks, in vectors of four floats: the NEON operations of ARM
/// processors, and the same ones from SIMDe on others.
///
/// Shapes and the order of the sums are those of SrFloatConvolution, and so are the bits of the results for finite
/// data. Nothing is read or written beyond the arrays' sizes. An object serves one thread at a time.
class MOVRA_SUPERRESOLUTION_API SrFloatNeonConvolution {
 public:
  /// One float per low-resolution pixel, the weight of its sample.
  using Mask = float;

  /// @param hrWidth, hrHeight   size of the high-resolution image
  /// @param psfWidth, psfHeight lengths of the two kernels (6 for factor 2)
  /// @param factor              up-scaling factor; 2 is the case with vectors
  /// @throws std::bad_array_new_length if a size is negative or too large
  SrFloatNeonConvolution(int hrWidth, int hrHeight, int psfWidth, int psfHeight, float factor);
  ~SrFloatNeonConvolution();
  SrFloatNeonConvolution(const SrFloatNeonConvolution&) = delete;
  SrFloatNeonConvolution& operator=(const SrFloatNeonConvolution&) = delete;

  /// Transpose of the masked imaging model: spreads each masked sample over the padded grid.
  /// Sample (r, x) reaches rows 2r .. 2r + K - 1 and columns F x .. F x + K - 1, F = (int)factor; the row stride is 2
  /// whatever the factor.
  /// @param image low-resolution frame, lowHeight x lowWidth
  /// @param psfX, psfY the frame's kernels
  /// @param mask weights, lowHeight x lowWidth
  /// @param out  paddedHeight x paddedWidth, overwritten
  void fullConvFromSparse(float* image, float* psfX, float* psfY, float* mask, float* out);

  /// Imaging model: out(r, x) = sum over ky, kx of psfY[ky] psfX[kx] hr(2r + ky, F x + kx).
  /// @param hr   padded high-resolution image, paddedHeight x paddedWidth
  /// @param psfX, psfY the frame's kernels
  /// @param out  lowHeight x lowWidth, overwritten
  void validCorrToSparse(float* hr, float* psfX, float* psfY, float* out);

  /// Box filter with a window that shrinks at the borders; see SrFloatConvolution::blurImageMeanFilter.
  static void blurImageMeanFilter(cv::Mat_<float>& in, int radius, cv::Mat_<float>& out);

 private:
  detail::PlainOperators plainOperators(const float* psfX, const float* psfY) const;

  int hrWidth;
  int hrHeight;
  int psfWidth;
  int psfHeight;
  int paddedWidth;
  int paddedHeight;
  float factor;
  std::unique_ptr<detail::NeonOperators> vectorised;  // factor 2 with six taps; null in other cases
  cv::Mat columnBuffer;                               // between the two separable passes of the other cases
};

}  // namespace movra::vision
