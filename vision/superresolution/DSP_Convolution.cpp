#include "vision/superresolution/DSP_Convolution.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>

#include "movra/Exception.h"
#include "vision/superresolution/detail/operators/SparseGrid.h"

namespace movra::vision {

using detail::elementCount;
using detail::Index;
using detail::SparseGrid;

namespace {

template <typename T>
T paddedSize(T hrSize, T psfSize) {
  const std::int64_t size = std::int64_t{hrSize} + psfSize - 1;
  if (hrSize < 0 || psfSize < 0) {
    MOVRA_THROW("The sizes of image and kernel must not be negative.");
  }
  if (size > std::numeric_limits<T>::max()) {
    MOVRA_THROW("The padded image is too large for the sample type.");
  }
  return static_cast<T>(size);
}

/// Product that wraps around instead of overflowing.
int wrappingProduct(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

/// Division of ints by a fixed divisor, towards zero, in a form that compilers vectorise.
///
/// The reciprocal is rounded up by more than its own and the product's rounding error, so an exact quotient never comes
/// out one too small. Any other quotient is at least 2^-31 (relative) below the next integer, so it never comes out one too
/// large.
class Divider {
 public:
  /// `divisor` is neither 0 nor -1: the quotient of the smallest int and -1 is no int.
  explicit Divider(int divisor) : reciprocal((1.0 + 0x1p-50) / divisor) {}
  int operator()(int dividend) const { return static_cast<int>(dividend * reciprocal); }

 private:
  double reciprocal;
};

/// sum[i] += quotient of in[i * stride] * tap, for i = 0 ... count - 1.
template <typename T>
void addScaled(const T* in, Index stride, int tap, Divider quotient, Index count, T* sum) {
  for (Index i = 0; i < count; ++i) {
    const int term = quotient(wrappingProduct(in[i * stride], tap));
    sum[i] = static_cast<T>(static_cast<unsigned>(sum[i]) + static_cast<unsigned>(term));
  }
}

template <typename T>
void correlate3x3(const T* src, T* dst, Index count, Index pitch, const T* kernel, int shift) {
  unsigned k[9];
  std::copy_n(kernel, 9, k);
  for (Index i = 0; i < count; ++i) {
    unsigned sum = 0;
    for (int a = 0; a < 3; ++a) {
      for (int b = 0; b < 3; ++b) {
        sum += static_cast<unsigned>(src[i + b + a * pitch]) * k[3 * a + b];
      }
    }
    dst[i] = static_cast<T>(static_cast<T>(sum) >> shift);
  }
}

/// Normalises a phase image into a temporary, which is dropped: the phase image keeps its values.
template <typename T>
void normalizeCopy(T* phase, Index rows, Index columns) {
  const cv::Mat image(static_cast<int>(rows), static_cast<int>(columns), cv::DataType<T>::type, phase);
  cv::Mat normalized;
  cv::normalize(image, normalized, 1.0, 0.0, cv::NORM_MINMAX);
}

}  // namespace

template <typename T>
DSP_Convolution<T>::DSP_Convolution(T hrWidth_, T hrHeight_, T psfWidth_, T psfHeight_, float factor_)
    : hrWidth(hrWidth_),
      hrHeight(hrHeight_),
      psfWidth(psfWidth_),
      psfHeight(psfHeight_),
      paddedWidth(paddedSize(hrWidth_, psfWidth_)),
      paddedHeight(paddedSize(hrHeight_, psfHeight_)),
      factor(factor_),
      columnBuffer(new T[static_cast<std::size_t>(elementCount(paddedHeight, hrWidth))]) {}

template <typename T>
void DSP_Convolution<T>::setFilterScale(T scale) {
  filterScale = scale;
}

template <typename T>
int DSP_Convolution<T>::validCorrToSparse(T* hr, T* psfX, T* psfY, T* out) {
  if (filterScale == 0) {
    MOVRA_THROW("The filter scale is 0 or was not set.");
  }
  // Dividing by -1 is dividing by 1 with the taps' sign changed, also where products wrap around.
  const int sign = filterScale == -1 ? -1 : 1;
  const Divider quotient(filterScale * sign);
  const SparseGrid grid(hrWidth, hrHeight, factor);
  T* const columns = columnBuffer.get();  // paddedHeight x grid.width

  // The sums wrap around, so that the order of their terms does not matter: all terms of a row at once.
  std::fill_n(columns, elementCount(paddedHeight, grid.width), T{0});
  for (Index y = 0; y < paddedHeight; ++y) {
    for (Index kx = 0; kx < psfWidth; ++kx) {
      addScaled(hr + y * paddedWidth + kx, grid.columnStride, wrappingProduct(sign, psfX[kx]), quotient, grid.width,
                columns + y * grid.width);
    }
  }
  std::fill_n(out, elementCount(grid.height, grid.width), T{0});
  for (Index r = 0; r < grid.height; ++r) {
    for (Index ky = 0; ky < psfHeight; ++ky) {
      addScaled(columns + ky * grid.width + r * grid.rowStep, 1, wrappingProduct(sign, psfY[ky]), quotient, grid.width,
                out + r * grid.width);
    }
  }
  return 0;
}

template <typename T>
int DSP_Convolution<T>::fullConvFromSparse(T* image, T* psfX, T* psfY, char* mask, T* out) {
  const SparseGrid grid(hrWidth, hrHeight, factor);
  const Index lw = grid.width;
  const Index lh = grid.height;
  const Index pitch = lw + 4;
  if (std::max(lw, lh) > std::numeric_limits<int>::max() - 4) {
    MOVRA_THROW("The image is too large.");
  }

  // The masked frame within a border of two zeros.
  const std::unique_ptr<T[]> padded(new T[static_cast<std::size_t>(elementCount(lh + 4, pitch))]());
  for (Index r = 0; r < lh; ++r) {
    T* const row = padded.get() + (r + 2) * pitch + 2;
    for (Index x = 0; x < lw; ++x) {
      row[x] = static_cast<T>(wrappingProduct(static_cast<signed char>(mask[r * lw + x]), image[r * lw + x]));
    }
  }

  // Runs over the padded frame as one long row; the last one ends at its last element. Where a window wraps
  // around the end of a row, the value falls into the four columns of a phase image that nobody reads.
  const Index count = (lh + 2) * pitch - 2;
  const Index phaseSize = elementCount(lh + 2, pitch);
  const std::unique_ptr<T[]> phases(new T[static_cast<std::size_t>(2 * phaseSize)]());
  T* const phase[2] = {phases.get(), phases.get() + phaseSize};
  for (Index py = 0; py < 2; ++py) {
    for (Index px = 0; px < 2; ++px) {
      T kernel[9];
      for (Index a = 0; a < 3; ++a) {
        for (Index b = 0; b < 3; ++b) {
          kernel[3 * a + b] = static_cast<T>(wrappingProduct(psfY[py + 4 - 2 * a], psfX[px + 4 - 2 * b]) / 32768);
        }
      }
      correlate3x3(padded.get(), phase[px], count, pitch, kernel, 15);
      normalizeCopy(phase[px], lh + 2, pitch);
    }
    for (Index r = 0; r < lh + 2; ++r) {
      T* const row = out + (2 * r + py) * (2 * lw + 5);
      const T* const even = phase[0] + r * pitch;
      const T* const odd = phase[1] + r * pitch;
      for (Index x = 0; x < lw + 2; ++x) {
        row[2 * x] = even[x];
        row[2 * x + 1] = odd[x];
      }
    }
  }
  return 0;
}

template <typename T>
void DSP_Convolution<T>::ImgConv3x3I16sC16s(const T* src, T* dst, short count, short pitch, const T* kernel, T shift) {
  correlate3x3(src, dst, count, pitch, kernel, std::clamp<int>(shift, 0, 31));
}

template class DSP_Convolution<short>;
template class DSP_Convolution<int>;

}  // namespace movra::vision
