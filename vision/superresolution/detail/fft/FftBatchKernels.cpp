#include "vision/superresolution/detail/fft/FftBatchKernels.h"

#include "vision/superresolution/detail/fft/FftKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

using std::ptrdiff_t;
void gatherColumns(const float* __restrict in, ptrdiff_t inPitch, int rows, int columns, float* __restrict batch) {
  for (int row = 0; row < rows; ++row, in += inPitch, batch += 2 * fftBatchWidth) {
    float* __restrict re = batch;
    float* __restrict im = batch + fftBatchWidth;
    if (columns == fftBatchWidth) {
      for (int lane = 0; lane < fftBatchWidth; ++lane) {
        re[lane] = in[2 * lane];
        im[lane] = in[2 * lane + 1];
      }
    } else {
      for (int lane = 0; lane < fftBatchWidth; ++lane) {
        re[lane] = lane < columns ? in[2 * lane] : 0.0f;
        im[lane] = lane < columns ? in[2 * lane + 1] : 0.0f;
      }
    }
  }
}

void scatterColumns(const float* __restrict batch, int rows, int columns, float* __restrict out, ptrdiff_t outPitch) {
  for (int row = 0; row < rows; ++row, out += outPitch, batch += 2 * fftBatchWidth) {
    const float* __restrict re = batch;
    const float* __restrict im = batch + fftBatchWidth;
    if (columns == fftBatchWidth) {
      for (int lane = 0; lane < fftBatchWidth; ++lane) {
        out[2 * lane] = re[lane];
        out[2 * lane + 1] = im[lane];
      }
    } else {
      for (int lane = 0; lane < columns; ++lane) {
        out[2 * lane] = re[lane];
        out[2 * lane + 1] = im[lane];
      }
    }
  }
}

}  // namespace

extern const FftBatchKernels fftBatchKernels;
const FftBatchKernels fftBatchKernels = [] {
  FftBatchKernels kernels{};
  kernels.gatherColumns = gatherColumns;
  kernels.scatterColumns = scatterColumns;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
