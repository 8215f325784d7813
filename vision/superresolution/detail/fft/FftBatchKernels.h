#pragma once

#include <cstddef>

namespace movra::vision::detail {

/// Moves values between images or half spectra and the batches of FftKernels.h.
struct FftBatchKernels {
  /// Columns of complex values, one after the other in each row, into the first lanes of a complex batch; the
  /// other lanes become zero.
  /// @param columns 1 to fftBatchWidth
  void (*gatherColumns)(const float* in, std::ptrdiff_t inPitch, int rows, int columns, float* batch);

  /// The first `columns` lanes of a complex batch into columns of complex values.
  void (*scatterColumns)(const float* batch, int rows, int columns, float* out, std::ptrdiff_t outPitch);
};

const FftBatchKernels& fftBatchKernels();

}  // namespace movra::vision::detail
