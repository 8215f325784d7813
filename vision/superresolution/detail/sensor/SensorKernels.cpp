#include "vision/superresolution/detail/sensor/SensorKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

using std::ptrdiff_t;

inline float absolute(float value) {
  return value < 0 ? -value : value;
}

inline float smaller(float a, float b) {
  return a < b ? a : b;
}

inline float larger(float a, float b) {
  return a < b ? b : a;
}

void gradientEnergy(const float* above, const float* row, const float* below, int width, float* energy) {
  for (int x = 0; x < width; ++x) {
    const float dx = 0.5f * (row[x + 1 < width ? x + 1 : x] - row[x > 0 ? x - 1 : x]);
    const float dy = 0.5f * (below[x] - above[x]);
    energy[x] = dx * dx + dy * dy;
  }
}

void planeFreeDifference(const float* above, const float* row, const float* below, int width, float* difference) {
  for (int x = 1; x < width - 1; ++x) {
    const float left = above[x - 1] - 2 * row[x - 1] + below[x - 1];
    const float middle = above[x] - 2 * row[x] + below[x];
    const float right = above[x + 1] - 2 * row[x + 1] + below[x + 1];
    difference[x] = absolute(left - 2 * middle + right) / 6;
  }
}

inline void order(float& a, float& b) {
  const float low = smaller(a, b);
  b = larger(a, b);
  a = low;
}

// The merge exchange sort for eight (D. E. Knuth, "The Art of Computer Programming", 5.2.2 M); what the median does not
// need falls away.
void neighbourMedianDifference(const float* above, const float* row, const float* below, int width, float* difference) {
  for (int x = 0; x < width; ++x) {
    float a = above[x - 1];
    float b = above[x];
    float c = above[x + 1];
    float d = row[x - 1];
    float e = row[x + 1];
    float f = below[x - 1];
    float g = below[x];
    float h = below[x + 1];
    order(a, e), order(b, f), order(c, g), order(d, h);
    order(a, c), order(b, d), order(e, g), order(f, h);
    order(c, e), order(d, f);
    order(a, b), order(c, d), order(e, f), order(g, h);
    order(b, e), order(d, g);
    order(d, e);
    difference[x] = row[x] - 0.5f * (d + e);
  }
}

// Sorts each of the lanes of `count` rows, by merge exchange.
void sortLanes(float* values, int count) {
  int top = 1;
  while (2 * top < count) {
    top *= 2;
  }
  for (int p = top; p > 0; p /= 2) {
    int q = top;
    int r = 0;
    int d = p;
    while (true) {
      for (int i = 0; i + d < count; ++i) {
        if ((i & p) != r) {
          continue;
        }
        float* low = values + ptrdiff_t{i} * temporalLanes;
        float* high = low + ptrdiff_t{d} * temporalLanes;
        for (int lane = 0; lane < temporalLanes; ++lane) {
          const float a = low[lane];
          const float b = high[lane];
          low[lane] = smaller(a, b);
          high[lane] = larger(a, b);
        }
      }
      if (q == p) {
        break;
      }
      d = q - p;
      q /= 2;
      r = p;
    }
  }
}

// Middle of the first valid[lane] of each lane's sorted values.
void pickMedians(const float* sorted, const int* valid, int width, float* median) {
  for (int lane = 0; lane < width; ++lane) {
    const int n = valid[lane];
    const float* column = sorted + lane;
    median[lane] =
        n < 2 ? 0.0f
              : 0.5f * column[ptrdiff_t{(n - 1) / 2} * temporalLanes] + 0.5f * column[ptrdiff_t{n / 2} * temporalLanes];
  }
}

// Puts the pixels side by side, what is not finite as infinity, and counts what is.
void load(const float* const* rows, ptrdiff_t offset, int count, int width, float* values, int* valid) {
  const float infinity = __builtin_inff();
  for (int lane = 0; lane < temporalLanes; ++lane) {
    valid[lane] = 0;
  }
  for (int k = 0; k < count; ++k) {
    const float* row = rows[k] + offset;
    float* out = values + ptrdiff_t{k} * temporalLanes;
    for (int lane = 0; lane < width; ++lane) {
      const float value = row[lane];
      const bool finite = value - value == 0;
      out[lane] = finite ? value : infinity;
      valid[lane] += finite ? 1 : 0;
    }
    for (int lane = width; lane < temporalLanes; ++lane) {
      out[lane] = 0;
    }
  }
}

// The last but one of the valid absolute values, of two images the last; and the last.
void pickLargest(const float* sorted, const int* valid, int count, int width, float* secondLargest, float* largest) {
  const int last = count > 2 ? 2 : 1;
  for (int lane = 0; lane < width; ++lane) {
    const int n = valid[lane];
    const float* column = sorted + lane;
    secondLargest[lane] = n < 2 ? 0.0f : column[ptrdiff_t{n - last} * temporalLanes];
    largest[lane] = n < 2 ? 0.0f : column[ptrdiff_t{n - 1} * temporalLanes];
  }
}

void temporalStatistics(const float* const* rows, ptrdiff_t offset, int count, int width, float* scratch, float* median,
                        float* medianOfAbsolute, float* secondLargest, float* largest) {
  int valid[temporalLanes];
  load(rows, offset, count, width, scratch, valid);
  sortLanes(scratch, count);
  pickMedians(scratch, valid, width, median);
  const ptrdiff_t size = ptrdiff_t{count} * temporalLanes;
  for (ptrdiff_t i = 0; i < size; ++i) {
    scratch[i] = absolute(scratch[i]);
  }
  sortLanes(scratch, count);
  pickMedians(scratch, valid, width, medianOfAbsolute);
  pickLargest(scratch, valid, count, width, secondLargest, largest);
}

void temporalMedian(const float* const* rows, ptrdiff_t offset, int count, int width, float* scratch, float* median,
                    float* weakest) {
  int valid[temporalLanes];
  load(rows, offset, count, width, scratch, valid);
  sortLanes(scratch, count);
  pickMedians(scratch, valid, width, median);
  for (int lane = 0; lane < width; ++lane) {
    const int n = valid[lane];
    const int exceptions = n < 5 ? 0 : 1;
    const float* column = scratch + lane;
    const float low = n < 2 ? 0.0f : column[ptrdiff_t{exceptions} * temporalLanes];
    const float high = n < 2 ? 0.0f : column[ptrdiff_t{n - 1 - exceptions} * temporalLanes];
    weakest[lane] = larger(larger(low, -high), 0.0f);
  }
}

void addResiduals(const float* values, const unsigned char* bad, float limit, int width, float* sum, float* squares,
                  float* counts) {
  for (int x = 0; x < width; ++x) {
    const float value = values[x];
    const bool good = absolute(value) < limit && bad[x] == 0;
    const float kept = good ? value : 0.0f;
    sum[x] += kept;
    squares[x] += kept * kept;
    counts[x] += good ? 1.0f : 0.0f;
  }
}

}  // namespace

extern const SensorKernels sensorKernels;
const SensorKernels sensorKernels{gradientEnergy,     planeFreeDifference, neighbourMedianDifference,
                                  temporalStatistics, temporalMedian,      addResiduals};

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
