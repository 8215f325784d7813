#include "vision/superresolution/SrFloatFft2d.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "movra/Exception.h"
#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/base/ErrorFunction.h"
#include "vision/superresolution/detail/base/TransposeKernels.h"
#include "vision/superresolution/detail/fft/FftBatchKernels.h"
#include "vision/superresolution/detail/fft/MixedRadix.h"

namespace movra::vision {

namespace {

using detail::fftBatchKernels;
using std::ptrdiff_t;

constexpr int batchWidth = detail::fftBatchWidth;

int positiveSize(int size) {
  if (size < 1) {
    MOVRA_THROW("The image size of a Fourier transform must be positive.");
  }
  return size;
}

// Columns of a half spectrum.
int halfWidth(int width) {
  return width / 2 + 1;
}

// Floats of one batch of rows or of columns, whichever is longer.
ptrdiff_t batchSize(int width, int height) {
  return batchWidth * std::max(ptrdiff_t{width}, 2 * ptrdiff_t{height});
}

void requireRadiusFits(int radius, int width, int height) {
  if (radius < 0 || radius > (std::min(width, height) - 1) / 2) {
    MOVRA_THROW("The Gaussian radius does not fit the image size.");
  }
}

// Half of the normalised Gaussian.
void fillGaussTaps(int radius, float sigma, float* taps) {
  const float q = 1.0f / (sigma * 1.4142135f);
  float sum = 0.0f;
  for (int i = 0; i <= radius; ++i) {
    const float centre = static_cast<float>(i);
    taps[i] = 0.5f * (detail::approximateErf((centre + 0.5f) * q) - detail::approximateErf((centre - 0.5f) * q));
    sum += 2.0f * taps[i];
  }
  const float scale = 1.0f / (sum - taps[0]);
  for (int i = 0; i <= radius; ++i) {
    taps[i] *= scale;
  }
}

// out[x] = sum over first <= t <= last of taps[|t|] * in[x + t * step], for `count` x.
void convolve(const float* in, ptrdiff_t step, int first, int last, const float* taps, int count, float* out) {
  std::fill_n(out, count, 0.0f);
  for (int t = first; t <= last; ++t) {
    const float weight = taps[std::abs(t)];
    const float* const shifted = in + t * step;
    for (int x = 0; x < count; ++x) {
      out[x] += weight * shifted[x];
    }
  }
}

// Calls function(k, count) for batches of the columns k ... k + count - 1 of a half spectrum, all but the
// real ones.
template <typename Function>
void forEachColumnBatch(int width, Function function) {
  const int end = (width + 1) / 2;
  for (int k = 1; k < end; k += batchWidth) {
    function(k, std::min(batchWidth, end - k));
  }
}

// Calls function(k) for the columns that the row transforms make real: the first and, of even widths, the
// last.
template <typename Function>
void forEachRealColumn(int width, Function function) {
  function(0);
  if (width % 2 == 0) {
    function(width / 2);
  }
}

void gatherColumn(const float* bins, ptrdiff_t pitch, int rows, float* column) {
  for (int row = 0; row < rows; ++row) {
    std::copy_n(bins + row * pitch, 2, column + 2 * ptrdiff_t{row});
  }
}

}  // namespace

namespace detail {

// Tables and scratch space of one image size.
struct Fft2dTables {
  Fft2dTables(int width, int height)
      : row(new float[2 * static_cast<std::size_t>(width)]),
        column(new float[4 * static_cast<std::size_t>(height)]),
        batches(makeAlignedFloats(static_cast<std::size_t>(2 * batchSize(width, height)))) {
    prepareRealTransform(width, row.get(), rowFactors);
    prepareComplexTransform(height, column.get(), columnFactors);
  }

  std::unique_ptr<float[]> row;
  std::unique_ptr<float[]> column;
  int rowFactors[factorTableSize];
  int columnFactors[factorTableSize];
  AlignedFloats batches;  // two batches, more than width + 2 height floats
};

}  // namespace detail

SrFloatFft2d::SrFloatFft2d(int imageWidth, int imageHeight)
    : width(positiveSize(imageWidth)),
      height(positiveSize(imageHeight)),
      tables(std::make_unique<detail::Fft2dTables>(width, height)) {}

SrFloatFft2d::~SrFloatFft2d() = default;

void SrFloatFft2d::forward(float* image, float (*spectrum)[2]) {
  const detail::FftBatchKernels& kernels = fftBatchKernels();
  float* const batch = tables->batches.get();
  float* const scratch = batch + batchSize(width, height);
  const ptrdiff_t pitch = 2 * ptrdiff_t{halfWidth(width)};
  float* const bins = *spectrum;

  for (int y = 0; y < height; y += batchWidth) {
    const int rows = std::min(batchWidth, height - y);
    if (rows < batchWidth) {
      std::fill_n(batch, ptrdiff_t{width} * batchWidth, 0.0f);
    }
    detail::transposeKernels().transpose(image + ptrdiff_t{y} * width, width, rows, width, batch, batchWidth);
    const float* const packed = detail::realForwardBatch(width, batch, scratch, tables->row.get(), tables->rowFactors);
    // From the second value on, the packed order is that of a row of bins.
    float* const binRows = bins + y * pitch;
    detail::transposeKernels().transpose(packed + batchWidth, batchWidth, width - 1, rows, binRows + 2, pitch);
    for (int row = 0; row < rows; ++row) {
      binRows[row * pitch] = packed[row];
      binRows[row * pitch + 1] = 0.0f;
      if (width % 2 == 0) {
        binRows[row * pitch + width + 1] = 0.0f;
      }
    }
  }

  forEachColumnBatch(width, [&](int k, int columns) {
    kernels.gatherColumns(bins + 2 * k, pitch, height, columns, batch);
    const float* const result =
        detail::complexForwardBatch(height, batch, scratch, tables->column.get(), tables->columnFactors);
    kernels.scatterColumns(result, height, columns, bins + 2 * k, pitch);
  });
  forEachRealColumn(width, [&](int k) {
    gatherColumn(bins + 2 * k, pitch, height, batch);
    detail::complexForward(height, batch, tables->column.get(), tables->columnFactors);
    for (int y = 0; y < height; ++y) {
      std::copy_n(batch + 2 * ptrdiff_t{y}, 2, bins + y * pitch + 2 * k);
    }
  });
}

void SrFloatFft2d::backward(float (*spectrum)[2], float* image) {
  const detail::FftBatchKernels& kernels = fftBatchKernels();
  float* const batch = tables->batches.get();
  float* const scratch = batch + batchSize(width, height);
  const ptrdiff_t pitch = 2 * ptrdiff_t{halfWidth(width)};
  const float* const bins = *spectrum;

  // The image first takes the rows in packed order.
  forEachColumnBatch(width, [&](int k, int columns) {
    kernels.gatherColumns(bins + 2 * k, pitch, height, columns, batch);
    const float* const result =
        detail::complexBackwardBatch(height, batch, scratch, tables->column.get(), tables->columnFactors);
    kernels.scatterColumns(result, height, columns, image + 2 * k - 1, width);
  });
  forEachRealColumn(width, [&](int k) {
    gatherColumn(bins + 2 * k, pitch, height, batch);
    detail::complexBackward(height, batch, tables->column.get(), tables->columnFactors);
    float* const column = image + (k == 0 ? 0 : width - 1);
    for (int y = 0; y < height; ++y) {
      column[ptrdiff_t{y} * width] = batch[2 * ptrdiff_t{y}];
    }
  });

  for (int y = 0; y < height; y += batchWidth) {
    const int rows = std::min(batchWidth, height - y);
    float* const imageRows = image + ptrdiff_t{y} * width;
    if (rows < batchWidth) {
      std::fill_n(batch, ptrdiff_t{width} * batchWidth, 0.0f);
    }
    detail::transposeKernels().transpose(imageRows, width, rows, width, batch, batchWidth);
    const float* const result = detail::realBackwardBatch(width, batch, scratch, tables->row.get(), tables->rowFactors);
    detail::transposeKernels().transpose(result, batchWidth, width, rows, imageRows, width);
  }
}

void SrFloatFft2d::gaussFft(int radius, float sigma, float (*filter)[2], float* taps) {
  requireRadiusFits(radius, width, height);
  fillGaussTaps(radius, sigma, taps);

  // One float ahead, so that the packed values from the second on are where a row of bins has them.
  float* const rowBins = tables->batches.get();
  float* const row = rowBins + 1;
  const float area = static_cast<float>(std::int64_t{width} * height);
  std::fill_n(row, width, 0.0f);
  row[0] = taps[0] / area;
  for (int i = 1; i <= radius; ++i) {
    row[i] = row[width - i] = taps[i] / area;
  }
  detail::realForward(width, row, tables->row.get(), tables->rowFactors);
  rowBins[0] = row[0];
  rowBins[1] = 0.0f;
  if (width % 2 == 0) {
    rowBins[width + 1] = 0.0f;
  }

  float* const column = rowBins + 2 * ptrdiff_t{halfWidth(width)};
  std::fill_n(column, 2 * ptrdiff_t{height}, 0.0f);
  column[0] = taps[0];
  for (int i = 1; i <= radius; ++i) {
    column[2 * i] = column[2 * (ptrdiff_t{height} - i)] = taps[i];
  }
  detail::complexForward(height, column, tables->column.get(), tables->columnFactors);

  for (int y = 0; y < height; ++y) {
    const float re = column[2 * ptrdiff_t{y}];
    const float im = column[2 * ptrdiff_t{y} + 1];
    for (int k = 0; k < halfWidth(width); ++k, ++filter) {
      (*filter)[0] = re * rowBins[2 * k] - im * rowBins[2 * k + 1];
      (*filter)[1] = re * rowBins[2 * k + 1] + im * rowBins[2 * k];
    }
  }
}

void SrFloatFft2d::repairGaussBlur(const float* image, float* blurred, int radius, float* taps) {
  if (radius < 1) {
    return;
  }
  requireRadiusFits(radius, width, height);

  // factors[d] makes up for the taps that fall outside at the distance d from a border.
  float* const columnSums = tables->batches.get();
  float* const factors = columnSums + width;
  float mass = 1.0f;
  for (int d = radius - 1; d >= 0; --d) {
    mass -= taps[d + 1];
    factors[d] = 1.0f / mass;
  }

  for (int y = 0; y < height; ++y) {
    const float* const imageRow = image + ptrdiff_t{y} * width;
    float* const blurredRow = blurred + ptrdiff_t{y} * width;
    const int below = height - 1 - y;
    const bool inBand = std::min(y, below) < radius;

    const auto sumColumns = [&](int first, int count) {
      convolve(imageRow + first, width, -std::min(radius, y), std::min(radius, below), taps, count, columnSums + first);
      if (inBand) {
        const float factor = factors[std::min(y, below)];
        for (int x = first; x < first + count; ++x) {
          columnSums[x] *= factor;
        }
      }
    };
    const auto sumBorderRow = [&](int first) {
      for (int x = first; x < first + radius; ++x) {
        const int right = width - 1 - x;
        convolve(columnSums + x, 1, -std::min(radius, x), std::min(radius, right), taps, 1, blurredRow + x);
        blurredRow[x] *= factors[std::min(x, right)];
      }
    };

    if (inBand) {
      sumColumns(0, width);
      convolve(columnSums + radius, 1, -radius, radius, taps, width - 2 * radius, blurredRow + radius);
    } else {
      sumColumns(0, 2 * radius);
      sumColumns(width - 2 * radius, 2 * radius);
    }
    sumBorderRow(0);
    sumBorderRow(width - radius);
  }
}

}  // namespace movra::vision
