#include "vision/superresolution/detail/registration/RegistrationKernels.h"

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

// sums[16 s + x mod 16] += terms(x)[s] for each of the `count` columns; the columns of a whole block go side by side.
template <int sums, class AddTerms>
inline void addToColumnLanes(int count, double* lanes, AddTerms addTerms) {
  double local[sums * sumLanes];
  for (int l = 0; l < sums * sumLanes; ++l) {
    local[l] = lanes[l];
  }
  int x = 0;
  const int lastBlock = count - sumLanes;
  for (; x <= lastBlock; x += sumLanes) {
    for (int l = 0; l < sumLanes; ++l) {
      addTerms(x + l, local + l);
    }
  }
  for (int l = 0; x < count; ++x, ++l) {
    addTerms(x, local + l);
  }
  for (int l = 0; l < sums * sumLanes; ++l) {
    lanes[l] = local[l];
  }
}

void addGradientProducts(const float* __restrict gradX, const float* __restrict gradY, int count,
                         double* __restrict lanes) {
  addToColumnLanes<3>(count, lanes, [=](int x, double* lane) {
    lane[0] += static_cast<double>(gradX[x] * gradX[x]);
    lane[sumLanes] += static_cast<double>(gradX[x] * gradY[x]);
    lane[2 * sumLanes] += static_cast<double>(gradY[x] * gradY[x]);
  });
}

void addGradientTimesDifference(const float* __restrict gradX, const float* __restrict gradY,
                                const float* __restrict reference, const float* __restrict frame, int count,
                                double* __restrict lanes) {
  addToColumnLanes<2>(count, lanes, [=](int x, double* lane) {
    const float difference = frame[x] - reference[x];
    lane[0] += static_cast<double>(gradX[x] * difference);
    lane[sumLanes] += static_cast<double>(gradY[x] * difference);
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

// One element of each of the rows that are filtered together.
using BoxVector = float __attribute__((vector_size(boxLanes * sizeof(float)), aligned(sizeof(float)), may_alias));

// Rows are independent chains of additions; their sums run side by side.
void boxFilterLanes(const float* __restrict in, int length, int radius, float* __restrict out) {
  const auto* elements = reinterpret_cast<const BoxVector*>(in);
  auto* means = reinterpret_cast<BoxVector*>(out);
  const int reach = radius < length ? radius : length;
  const int window = 2 * reach + 1;
  BoxVector sums = {};
  for (int i = 0; i < reach; ++i) {
    sums += elements[i];
  }
  int i = 0;
  // Windows are cut at the left border, then whole, then cut at the right border.
  for (; i < reach && i < length; ++i) {
    if (i + reach < length) {
      sums += elements[i + reach];
    }
    means[i] = sums / static_cast<float>(i + reach < length ? i + reach + 1 : length);
  }
  const float reciprocal = 1.0f / static_cast<float>(window);
  for (; i + reach < length; ++i) {
    sums += elements[i + reach];
    means[i] = sums * reciprocal;
    sums -= elements[i - reach];
  }
  for (; i < length; ++i) {
    means[i] = sums / static_cast<float>(length - (i - reach));
    sums -= elements[i - reach];
  }
}

void boxFilterStep(float* __restrict sums, const float* __restrict entering, const float* __restrict leaving,
                   bool multiply, float scale, int columns, float* __restrict out) {
  if (entering != nullptr && leaving != nullptr && multiply) {  // the interior, in one pass
    for (int x = 0; x < columns; ++x) {
      const float sum = sums[x] + entering[x];
      out[x] = sum * scale;
      sums[x] = sum - leaving[x];
    }
    return;
  }
  for (int x = 0; entering != nullptr && x < columns; ++x) {
    sums[x] += entering[x];
  }
  for (int x = 0; x < columns; ++x) {
    out[x] = multiply ? sums[x] * scale : sums[x] / scale;
  }
  for (int x = 0; leaving != nullptr && x < columns; ++x) {
    sums[x] -= leaving[x];
  }
}

}  // namespace

extern const RegistrationKernels registrationKernels;
const RegistrationKernels registrationKernels{gradientRow,
                                              addGradientProducts,
                                              addGradientTimesDifference,
                                              residualRow,
                                              markBelow<char>,
                                              markBelow<float>,
                                              markMaxima,
                                              toGrey,
                                              boxFilterLanes,
                                              boxFilterStep};

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
