#include "vision/superresolution/detail/registration/RegistrationKernels.h"

#include "vision/superresolution/detail/base/Sums.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

void gradientRow(const float* __restrict row, const float* __restrict above, const float* __restrict below,
                 float weightY, int width, float* __restrict gradX, float* __restrict gradY) {
  const int last = width - 1;
  gradX[0] = last > 0 ? row[1] - row[0] : 0.0f;
  for (int x = 1; x < last; ++x) {
    gradX[x] = 0.5f * (row[x + 1] - row[x - 1]);
  }
  if (last > 0) {
    gradX[last] = row[last] - row[last - 1];
  }
  for (int x = 0; x < width; ++x) {
    gradY[x] = weightY * (below[x] - above[x]);
  }
}

// sums[16 s + x mod 16] += term s of column x, for `terms` sums and `count` columns; the columns of a whole block go side
// by side.
template <int terms, class AddTerms>
inline void addByColumn(int count, double* sums, AddTerms addTerms) {
  double local[terms * partialSums];
  for (int l = 0; l < terms * partialSums; ++l) {
    local[l] = sums[l];
  }
  int x = 0;
  const int lastBlock = count - partialSums;
  for (; x <= lastBlock; x += partialSums) {
    for (int l = 0; l < partialSums; ++l) {
      addTerms(x + l, local + l);
    }
  }
  for (int l = 0; x < count; ++x, ++l) {
    addTerms(x, local + l);
  }
  for (int l = 0; l < terms * partialSums; ++l) {
    sums[l] = local[l];
  }
}

void addGradientProducts(const float* __restrict gradX, const float* __restrict gradY, int count,
                         double* __restrict sums) {
  addByColumn<3>(count, sums, [=](int x, double* sum) {
    sum[0] += static_cast<double>(gradX[x] * gradX[x]);
    sum[partialSums] += static_cast<double>(gradX[x] * gradY[x]);
    sum[2 * partialSums] += static_cast<double>(gradY[x] * gradY[x]);
  });
}

void addGradientTimesDifference(const float* __restrict gradX, const float* __restrict gradY,
                                const float* __restrict reference, const float* __restrict frame, int count,
                                double* __restrict sums) {
  addByColumn<2>(count, sums, [=](int x, double* sum) {
    const float difference = frame[x] - reference[x];
    sum[0] += static_cast<double>(gradX[x] * difference);
    sum[partialSums] += static_cast<double>(gradY[x] * difference);
  });
}

void residualRow(float dx, float dy, float scale, const float* __restrict gradX, const float* __restrict gradY,
                 const float* __restrict reference, const float* __restrict frame, int count,
                 float* __restrict residual) {
  for (int x = 0; x < count; ++x) {
    const float remaining = dx * gradX[x] + dy * gradY[x] + (frame[x] - reference[x]);
    residual[x] = remaining * remaining * scale;
  }
}

template <class Mask>
void markBelow(const float* __restrict residual, float limit, int count, Mask* __restrict mask) {
  for (int x = 0; x < count; ++x) {
    mask[x] = residual[x] < limit ? Mask{1} : mask[x];
  }
}

void markMaxima(const float* __restrict row, long stride, float threshold, int count,
                unsigned char* __restrict isMaximum) {
  const float* __restrict above = row - stride;
  const float* __restrict below = row + stride;
  for (int x = 0; x < count; ++x) {
    const float value = row[x];
    const int strong = (value > threshold) & (value != 0.0f);
    const int weaker = (above[x - 1] > value) | (above[x] > value) | (above[x + 1] > value) | (row[x - 1] > value) |
                       (row[x + 1] > value) | (below[x - 1] > value) | (below[x] > value) | (below[x + 1] > value);
    isMaximum[x] = static_cast<unsigned char>(strong & (weaker ^ 1));
  }
}

void toGrey(const float* __restrict values, float offset, float scale, int count, unsigned char* __restrict grey) {
  constexpr float unitSpacing = 8388608.0f;  // 2^23: floats from here on are whole numbers, so adding it rounds
  for (int x = 0; x < count; ++x) {
    const float value = (values[x] + offset) * scale;
    const float atLeastZero = value > 0.0f ? value : 0.0f;
    const float clamped = atLeastZero < 255.0f ? atLeastZero : 255.0f;
    grey[x] = static_cast<unsigned char>(static_cast<int>((clamped + unitSpacing) - unitSpacing));
  }
}

void blurFiveRows(const unsigned char* const rows[5], int count, unsigned short* __restrict sums) {
  const unsigned char* __restrict a = rows[0];
  const unsigned char* __restrict b = rows[1];
  const unsigned char* __restrict c = rows[2];
  const unsigned char* __restrict d = rows[3];
  const unsigned char* __restrict e = rows[4];
  for (int i = 0; i < count; ++i) {
    sums[i] = static_cast<unsigned short>(a[i] + e[i] + 4 * (b[i] + d[i]) + 6 * c[i]);
  }
}

inline unsigned char halved(const unsigned short* p, int channels) {
  const int sum = p[-2 * channels] + p[2 * channels] + 4 * (p[-channels] + p[channels]) + 6 * p[0];
  return static_cast<unsigned char>((sum + 128) >> 8);
}

void halveRow(const unsigned short* __restrict sums, int channels, int count, unsigned char* __restrict out) {
  if (channels == 1) {
    for (int x = 0; x < count; ++x) {
      out[x] = halved(sums + 2 * x, 1);
    }
    return;
  }
  for (int x = 0; x < count; ++x) {
    for (int k = 0; k < channels; ++k) {
      out[x * channels + k] = halved(sums + 2 * x * channels + k, channels);
    }
  }
}

}  // namespace

extern const RegistrationKernels registrationKernels;
const RegistrationKernels registrationKernels = [] {
  RegistrationKernels kernels{};
  kernels.gradientRow = gradientRow;
  kernels.addGradientProducts = addGradientProducts;
  kernels.addGradientTimesDifference = addGradientTimesDifference;
  kernels.residualRow = residualRow;
  kernels.markBelow = markBelow<char>;
  kernels.markBelowFloat = markBelow<float>;
  kernels.markMaxima = markMaxima;
  kernels.toGrey = toGrey;
  kernels.blurFiveRows = blurFiveRows;
  kernels.halveRow = halveRow;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
