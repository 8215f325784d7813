#pragma once

namespace movra::vision::detail {

/// Sequences that a batch holds side by side, one vector lane each.
constexpr int fftBatchWidth = 16;

/// Transforms of length n, unnormalised, each of one sequence and of a batch of fftBatchWidth sequences.
///
/// Element e of lane l of a real batch is at data[e * fftBatchWidth + l]; of a complex batch the real part is
/// at data[2 * e * fftBatchWidth + l] and the imaginary part fftBatchWidth floats further. Each lane gets the
/// bits that the transform of that sequence alone gives.
struct FftKernels {
  /// @param data the sequences; overwritten
  /// @param scratch as long as data
  /// @param roots exp(2 pi i t / n) for t = 1, 2, ... as (real, imaginary): up to t = (n - 1) / 2 for the
  ///              real transforms, up to t = n - 1 for the complex ones
  /// @param ifac n, the number of factors of n, the factors: first those of 4 and 2, then odd ones
  /// @return whichever of data and scratch holds the result
  using Transform = float* (*)(int n, float* data, float* scratch, const float* roots, const int* ifac);

  Transform realForward;
  Transform realBackward;
  Transform complexForward;
  Transform complexBackward;
  Transform realForwardBatch;
  Transform realBackwardBatch;
  Transform complexForwardBatch;
  Transform complexBackwardBatch;
};

const FftKernels& fftKernels();

}  // namespace movra::vision::detail
