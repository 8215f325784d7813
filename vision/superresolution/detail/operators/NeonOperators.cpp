#include "vision/superresolution/detail/operators/NeonOperators.h"

#include <algorithm>

#include "vision/superresolution/detail/operators/NeonIntrinsics.h"

namespace movra::vision::detail {

namespace {

constexpr int lanes = 4;
constexpr int rowCount = 8;
constexpr int guard = 16;  // zeros before and after a row's floats; vectors reach two before, four after

// Sums start at +0 like those of the plain loops, which matters where all terms are -0. Intermediate values go without:
// the sign of such a zero is lost in the sum that it enters.

// Six taps over row[2x] ... row[2x + 5], for x = 0 ... 3. Reads twelve floats.
inline float32x4_t correlate(const float* row, const float32x4_t h[6]) {
  const float32x4x2_t first = vld2q_f32(row);
  const float32x4x2_t second = vld2q_f32(row + 2);
  const float32x4x2_t third = vld2q_f32(row + 4);
  float32x4_t sum = vmulq_f32(first.val[0], h[0]);
  sum = vmlaq_f32(sum, first.val[1], h[1]);
  sum = vmlaq_f32(sum, second.val[0], h[2]);
  sum = vmlaq_f32(sum, second.val[1], h[3]);
  sum = vmlaq_f32(sum, third.val[0], h[4]);
  return vmlaq_f32(sum, third.val[1], h[5]);
}

// Takes padded rows 2s (`upper`) and 2s + 1 (`lower`) through the imaging model. They contribute to low-resolution rows
// s - 2, of which `older` holds the sum so far and which is complete then, s - 1 (`newer`) and s.
void imageRowPair(const float* upper, const float* lower, int width, const float* psfX, const float* psfY, float* older,
                  float* newer, float* complete) {
  float32x4_t h[6];
  float32x4_t v[6];
  for (int k = 0; k < 6; ++k) {
    h[k] = vdupq_n_f32(psfX[k]);
    v[k] = vdupq_n_f32(psfY[k]);
  }
  const float32x4_t zero = vdupq_n_f32(0.0f);
  for (int x = 0; x < width; x += lanes) {
    const float32x4_t a = correlate(upper + 2 * x, h);
    const float32x4_t b = correlate(lower + 2 * x, h);
    vst1q_f32(complete + x, vmlaq_f32(vmlaq_f32(vld1q_f32(older + x), a, v[4]), b, v[5]));
    vst1q_f32(older + x, vmlaq_f32(vmlaq_f32(vld1q_f32(newer + x), a, v[2]), b, v[3]));
    vst1q_f32(newer + x, vmlaq_f32(vmlaq_f32(zero, a, v[0]), b, v[1]));
  }
}

// weighted[x] = mask[x] row[x]
void weightRow(const float* mask, const float* row, int width, float* weighted) {
  int x = 0;
  for (; x + lanes <= width; x += lanes) {
    vst1q_f32(weighted + x, vmulq_f32(vld1q_f32(mask + x), vld1q_f32(row + x)));
  }
  for (; x < width; ++x) {
    weighted[x] = mask[x] * row[x];
  }
}

// Vertical half of the transpose: row 2r + i of the intermediate from sample rows r, r - 1, r - 2 and taps i, i + 2,
// i + 4.
void spreadRow(const float* row, const float* rowBefore, const float* rowBeforeThat, int width, const float* taps,
               float* intermediate) {
  const float32x4_t v0 = vdupq_n_f32(taps[0]);
  const float32x4_t v2 = vdupq_n_f32(taps[2]);
  const float32x4_t v4 = vdupq_n_f32(taps[4]);
  for (int x = 0; x < width; x += lanes) {
    float32x4_t sum = vmulq_f32(vld1q_f32(row + x), v0);
    sum = vmlaq_f32(sum, vld1q_f32(rowBefore + x), v2);
    vst1q_f32(intermediate + x, vmlaq_f32(sum, vld1q_f32(rowBeforeThat + x), v4));
  }
}

inline float32x4_t alternating(float first, float second) {
  const float values[lanes] = {first, second, first, second};
  return vld1q_f32(values);
}

// row[0], row[0], row[1], row[1]
inline float32x4_t eachTwice(const float* row) {
  return vcombine_f32(vdup_n_f32(row[0]), vdup_n_f32(row[1]));
}

// Horizontal half: writes 2 width + 5 floats and up to three more. Columns 2x and 2x + 1 come from row[x], row[x - 1],
// row[x - 2]; `row` is preceded by two and followed by four zeros.
void spreadColumns(const float* row, int width, const float* psfX, float* out) {
  const float32x4_t h01 = alternating(psfX[0], psfX[1]);
  const float32x4_t h23 = alternating(psfX[2], psfX[3]);
  const float32x4_t h45 = alternating(psfX[4], psfX[5]);
  const float32x4_t zero = vdupq_n_f32(0.0f);
  float32x4_t twoBefore = zero;
  for (int x = 0; x < width + 3; x += 2) {
    const float32x4_t here = eachTwice(row + x);
    const float32x4_t sum = vmlaq_f32(vmlaq_f32(zero, here, h01), eachTwice(row + x - 1), h23);
    vst1q_f32(out + 2 * x, vmlaq_f32(sum, twoBefore, h45));
    twoBefore = here;
  }
}

}  // namespace

NeonOperators::NeonOperators(int width, int height)
    : lowWidth(width),
      lowHeight(height),
      stride(static_cast<std::size_t>(alignedWidth(width)) + 2 * guard),
      rows(makeAlignedFloats(rowCount * stride)) {
  float* next = rows.get() + guard;
  for (float** row : {&older, &newer, &complete, &samples[0], &samples[1], &samples[2], &zeros, &intermediate}) {
    *row = next;
    next += stride;
  }
}

const float* NeonOperators::sampleRowOrZeros(int r) const {
  return 0 <= r && r < lowHeight ? samples[r % 3] : zeros;
}

void NeonOperators::fullConvFromSparse(const float* image, const float* psfX, const float* psfY, const float* mask,
                                       float* out) {
  const std::ptrdiff_t paddedWidth = 2 * std::ptrdiff_t{lowWidth} + taps - 1;
  for (int r = 0; r < lowHeight + 2; ++r) {
    if (r < lowHeight) {
      const std::ptrdiff_t begin = std::ptrdiff_t{r} * lowWidth;
      weightRow(mask + begin, image + begin, lowWidth, samples[r % 3]);
    }
    for (int i = 0; i < 2; ++i) {
      spreadRow(sampleRowOrZeros(r), sampleRowOrZeros(r - 1), sampleRowOrZeros(r - 2), lowWidth, psfY + i,
                intermediate);
      spreadColumns(intermediate, lowWidth, psfX, out);
      out += paddedWidth;
    }
  }
  std::fill_n(out, paddedWidth, 0.0f);
}

void NeonOperators::validCorrToSparse(const float* hr, const float* psfX, const float* psfY, float* out) {
  const std::ptrdiff_t paddedWidth = 2 * std::ptrdiff_t{lowWidth} + taps - 1;
  for (int s = 0; s < lowHeight + 2; ++s) {
    imageRowPair(hr, hr + paddedWidth, lowWidth, psfX, psfY, older, newer, complete);
    hr += 2 * paddedWidth;
    if (s >= 2) {
      out = std::copy_n(complete, lowWidth, out);
    }
  }
}

}  // namespace movra::vision::detail
