#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"

#include "vision/superresolution/detail/base/Vectors.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

template <class T>
inline T smaller(T a, T b) {
  return a < b ? a : b;
}

template <class T>
inline T larger(T a, T b) {
  return a > b ? a : b;
}

// out[x] = taps[0] at(0)[x] + taps[1] (at(-1)[x] + at(1)[x]) + ...; several vectors at once, so that none waits.
template <class At>
inline void blur(At at, const float* taps, int radius, int count, float* out) {
  constexpr int together = 4;
  constexpr WholeVector whole;
  int x = 0;
  for (; x + together * lanes <= count; x += together * lanes) {
    Vector sums[together];
    for (int k = 0; k < together; ++k) {
      sums[k] = taps[0] * whole.load(at(0) + x + k * lanes);
    }
    for (int j = 1; j <= radius; ++j) {
      const float* before = at(-j) + x;
      const float* after = at(j) + x;
      for (int k = 0; k < together; ++k) {
        sums[k] += taps[j] * (whole.load(before + k * lanes) + whole.load(after + k * lanes));
      }
    }
    for (int k = 0; k < together; ++k) {
      whole.store(sums[k], out + x + k * lanes);
    }
  }
  forVectors(x, count, [=](int i, auto access) {
    Vector sum = taps[0] * access.load(at(0) + i);
    for (int j = 1; j <= radius; ++j) {
      sum += taps[j] * (access.load(at(-j) + i) + access.load(at(j) + i));
    }
    access.store(sum, out + i);
  });
}

void blurRow(const float* row, const float* taps, int radius, int count, float* out) {
  blur([=](int j) { return row + j; }, taps, radius, count, out);
}

void blurColumn(const float* const* rows, const float* taps, int radius, int count, float* out) {
  blur([=](int j) { return rows[j]; }, taps, radius, count, out);
}

template <class T>
struct SplineWeights {
  explicit SplineWeights(T t) {
    const T s = 1.0f - t;
    const T t2 = t * t;
    w0 = s * s * s * (1.0f / 6.0f);
    w3 = t2 * t * (1.0f / 6.0f);
    w1 = 2.0f / 3.0f - t2 + 3.0f * w3;
    w2 = 1.0f - w0 - w1 - w3;
  }

  T sum(T a, T b, T c, T d) const { return w0 * a + w1 * b + w2 * c + w3 * d; }

  T w0, w1, w2, w3;
};

// The values at the places of a vector that lie in one row, `step` columns apart; `first` is the first coefficient of the
// first one.
template <int step>
inline Vector sampleAlong(const float* first, int pitch, const SplineWeights<Vector>& a,
                          const SplineWeights<Vector>& b) {
  constexpr WholeVector whole;
  Vector rows[4];
  for (int j = 0; j < 4; ++j) {
    const float* p = first + j * pitch;
    if (step == 1) {
      rows[j] = a.sum(whole.load(p), whole.load(p + 1), whole.load(p + 2), whole.load(p + 3));
    } else {
      const Vector early = whole.load(p);
      const Vector late = whole.load(p + lanes);
      const Vector nextEarly = whole.load(p + 2);
      const Vector nextLate = whole.load(p + 2 + lanes);
      rows[j] = a.sum(evens(early, late, Lanes()), odds(early, late, Lanes()), evens(nextEarly, nextLate, Lanes()),
                      odds(nextEarly, nextLate, Lanes()));
    }
  }
  return b.sum(rows[0], rows[1], rows[2], rows[3]);
}

void sampleLine(const float* __restrict coefficients, std::ptrdiff_t stride, int width, int height, float u, float v,
                float du, float dv, int count, float* __restrict out) {
  const float lastU = static_cast<float>(width - 1);
  const float lastV = static_cast<float>(height - 1);
  const int pitch = static_cast<int>(stride);
  const auto sampleEach = [=](int begin, int end) {
    for (int i = begin; i < end; ++i) {
      const float place = static_cast<float>(i);
      const float x = smaller(larger(u + place * du, 0.0f), lastU);
      const float y = smaller(larger(v + place * dv, 0.0f), lastV);
      const int column = static_cast<int>(x);
      const int row = static_cast<int>(y);
      const SplineWeights<float> a(x - static_cast<float>(column));
      const SplineWeights<float> b(y - static_cast<float>(row));
      const int first = (row - 1) * pitch + column - 1;
      const float* p = coefficients + first;
      const float* q = p + pitch;
      const float* r = q + pitch;
      const float* s = r + pitch;
      out[i] = b.sum(a.sum(p[0], p[1], p[2], p[3]), a.sum(q[0], q[1], q[2], q[3]), a.sum(r[0], r[1], r[2], r[3]),
                     a.sum(s[0], s[1], s[2], s[3]));
    }
  };
  // Motion is nearly a shift: most vectors read neighbouring coefficients, or every second one.
  const int step = du < 1.5f ? 1 : 2;
  int i = 0;
  for (; i + lanes <= count; i += lanes) {
    const Vector place = __builtin_convertvector(places() + i, Vector);
    const Vector x = smaller(larger(u + place * du, Vector{}), Vector{} + lastU);
    const Vector y = smaller(larger(v + place * dv, Vector{}), Vector{} + lastV);
    const VectorBits column = __builtin_convertvector(x, VectorBits);
    const VectorBits row = __builtin_convertvector(y, VectorBits);
    if (!isZero((column - (column[0] + step * places())) | (row - row[0]))) {
      sampleEach(i, i + lanes);
      continue;
    }
    const SplineWeights<Vector> a(x - __builtin_convertvector(column, Vector));
    const SplineWeights<Vector> b(y - __builtin_convertvector(row, Vector));
    const float* first = coefficients + (row[0] - 1) * pitch + column[0] - 1;
    WholeVector().store(step == 1 ? sampleAlong<1>(first, pitch, a, b) : sampleAlong<2>(first, pitch, a, b), out + i);
  }
  sampleEach(i, count);
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
