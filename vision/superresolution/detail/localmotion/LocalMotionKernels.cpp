#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

inline float smaller(float a, float b) {
  return a < b ? a : b;
}

inline float larger(float a, float b) {
  return a > b ? a : b;
}

constexpr int block = 64;

void blurRow(const float* row, const float* taps, int radius, int count, float* __restrict out) {
  for (int begin = 0; begin < count; begin += block) {
    const int n = count - begin < block ? count - begin : block;
    float sums[block];
    for (int i = 0; i < n; ++i) {
      sums[i] = taps[0] * row[begin + i];
    }
    for (int j = 1; j <= radius; ++j) {
      const float tap = taps[j];
      const float* left = row + begin - j;
      const float* right = row + begin + j;
      for (int i = 0; i < n; ++i) {
        sums[i] += tap * (left[i] + right[i]);
      }
    }
    for (int i = 0; i < n; ++i) {
      out[begin + i] = sums[i];
    }
  }
}

void blurColumn(const float* const* rows, const float* taps, int radius, int count, float* __restrict out) {
  for (int begin = 0; begin < count; begin += block) {
    const int n = count - begin < block ? count - begin : block;
    float sums[block];
    for (int i = 0; i < n; ++i) {
      sums[i] = taps[0] * rows[0][begin + i];
    }
    for (int j = 1; j <= radius; ++j) {
      const float tap = taps[j];
      const float* above = rows[-j] + begin;
      const float* below = rows[j] + begin;
      for (int i = 0; i < n; ++i) {
        sums[i] += tap * (above[i] + below[i]);
      }
    }
    for (int i = 0; i < n; ++i) {
      out[begin + i] = sums[i];
    }
  }
}

struct SplineWeights {
  float w0, w1, w2, w3;
};

inline SplineWeights splineWeights(float t) {
  const float s = 1.0f - t;
  const float t2 = t * t;
  const float w0 = s * s * s * (1.0f / 6.0f);
  const float w3 = t2 * t * (1.0f / 6.0f);
  const float w1 = 2.0f / 3.0f - t2 + 3.0f * w3;
  return {w0, w1, 1.0f - w0 - w1 - w3, w3};
}

void sampleLine(const float* __restrict coefficients, std::ptrdiff_t stride, int width, int height, float u, float v,
                float du, float dv, int count, float* __restrict out) {
  const float lastU = static_cast<float>(width - 1);
  const float lastV = static_cast<float>(height - 1);
  const int pitch = static_cast<int>(stride);
  for (int i = 0; i < count; ++i) {
    const float place = static_cast<float>(i);
    const float x = smaller(larger(u + place * du, 0.0f), lastU);
    const float y = smaller(larger(v + place * dv, 0.0f), lastV);
    const int column = static_cast<int>(x);
    const int row = static_cast<int>(y);
    const SplineWeights a = splineWeights(x - static_cast<float>(column));
    const SplineWeights b = splineWeights(y - static_cast<float>(row));
    const int first = (row - 1) * pitch + column - 1;
    const float* p = coefficients + first;
    const float* q = p + pitch;
    const float* r = q + pitch;
    const float* s = r + pitch;
    const float row0 = a.w0 * p[0] + a.w1 * p[1] + a.w2 * p[2] + a.w3 * p[3];
    const float row1 = a.w0 * q[0] + a.w1 * q[1] + a.w2 * q[2] + a.w3 * q[3];
    const float row2 = a.w0 * r[0] + a.w1 * r[1] + a.w2 * r[2] + a.w3 * r[3];
    const float row3 = a.w0 * s[0] + a.w1 * s[1] + a.w2 * s[2] + a.w3 * s[3];
    out[i] = b.w0 * row0 + b.w1 * row1 + b.w2 * row2 + b.w3 * row3;
  }
}

void addNormalRow(const float* __restrict gx, const float* __restrict gy, const float* __restrict e,
                  const float* __restrict x, const unsigned char* __restrict use, float centre, float limit, int count,
                  float* __restrict sums) {
  const float inverse = 1.0f / limit;
  for (int begin = 0; begin < count; begin += motionLanes) {
    const int n = count - begin < motionLanes ? count - begin : motionLanes;
    for (int l = 0; l < n; ++l) {
      const int i = begin + l;
      const float deviation = e[i] - centre;
      const float size = (deviation < 0 ? -deviation : deviation) * inverse;
      const float w = static_cast<float>(use[i]) / larger(size, 1.0f);
      const float wx = w * gx[i];
      const float wy = w * gy[i];
      const float xx = wx * gx[i];
      const float xy = wx * gy[i];
      const float yy = wy * gy[i];
      const float c = x[i];
      float* to = sums + l;
      to[gxgx * motionLanes] += xx;
      to[gxgy * motionLanes] += xy;
      to[gygy * motionLanes] += yy;
      to[gxgx_x * motionLanes] += xx * c;
      to[gxgy_x * motionLanes] += xy * c;
      to[gygy_x * motionLanes] += yy * c;
      to[gxgx_xx * motionLanes] += xx * c * c;
      to[gxgy_xx * motionLanes] += xy * c * c;
      to[gygy_xx * motionLanes] += yy * c * c;
      to[gx_ * motionLanes] += wx;
      to[gy_ * motionLanes] += wy;
      to[gx_x * motionLanes] += wx * c;
      to[gy_x * motionLanes] += wy * c;
      to[weights_ * motionLanes] += w;
      to[gx_e * motionLanes] += wx * e[i];
      to[gy_e * motionLanes] += wy * e[i];
      to[gx_xe * motionLanes] += wx * c * e[i];
      to[gy_xe * motionLanes] += wy * c * e[i];
      to[e_ * motionLanes] += w * e[i];
    }
  }
}

void squaredGradientRow(const float* row, const float* above, const float* below, int count,
                        float* __restrict gradient) {
  for (int i = 0; i < count; ++i) {
    const float gx = 0.5f * (row[i + 1] - row[i - 1]);
    const float gy = 0.5f * (below[i] - above[i]);
    gradient[i] = gx * gx + gy * gy;
  }
}

void largestOfFive(const float* row, int count, float* __restrict out) {
  for (int i = 0; i < count; ++i) {
    out[i] = larger(larger(larger(row[i - 2], row[i - 1]), larger(row[i], row[i + 1])), row[i + 2]);
  }
}

inline void correlate(const float* a, const float* b, int step, int count, float level, float* __restrict sums) {
  float rows[correlationSums][correlationLanes] = {};
  int begin = 0;
  for (; begin + correlationLanes <= count; begin += correlationLanes) {
    for (int lane = 0; lane < correlationLanes; ++lane) {
      const float p = a[(begin + lane) * step] - level;
      const float q = b[(begin + lane) * step] - level;
      rows[sumA][lane] += p;
      rows[sumB][lane] += q;
      rows[sumAA][lane] += p * p;
      rows[sumBB][lane] += q * q;
      rows[sumAB][lane] += p * q;
    }
  }
  for (int i = begin; i < count; ++i) {
    const float p = a[i * step] - level;
    const float q = b[i * step] - level;
    rows[sumA][i - begin] += p;
    rows[sumB][i - begin] += q;
    rows[sumAA][i - begin] += p * p;
    rows[sumBB][i - begin] += q * q;
    rows[sumAB][i - begin] += p * q;
  }
  for (int s = 0; s < correlationSums; ++s) {
    for (int lane = 0; lane < correlationLanes; ++lane) {
      sums[s * correlationLanes + lane] = rows[s][lane];
    }
  }
}

void correlateRows(const float* a, const float* b, int step, int count, float level, float* sums) {
  if (step == 1) {
    correlate(a, b, 1, count, level, sums);
  } else {
    correlate(a, b, step, count, level, sums);
  }
}

int joinMasks(const char* __restrict a, const char* __restrict b, int count, char* __restrict out) {
  int sum = 0;
  for (int i = 0; i < count; ++i) {
    const char both = static_cast<char>(a[i] & b[i]);
    out[i] = both;
    sum += both;
  }
  return sum;
}

}  // namespace

extern const LocalMotionKernels localMotionKernels;
const LocalMotionKernels localMotionKernels{blurRow,       blurColumn,    sampleLine, addNormalRow, squaredGradientRow,
                                            largestOfFive, correlateRows, joinMasks};

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
