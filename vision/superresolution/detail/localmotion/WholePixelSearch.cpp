#include "vision/superresolution/detail/localmotion/WholePixelSearch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"

namespace movra::vision::detail {

namespace {

/// Sums over an overlap, from which its normalised cross-correlation follows.
struct Correlation {
  double a = 0, b = 0, aa = 0, bb = 0, ab = 0, count = 0;

  double normalised() const {
    const double varianceA = aa - a * a / count;
    const double varianceB = bb - b * b / count;
    const double product = varianceA * varianceB;
    return product > 0 && varianceA > 0 ? (ab - a * b / count) / std::sqrt(product) : -1;
  }
};

/// Correlation of reference(x, y) with frame(x + dx, y + dy) at every `step`-th pixel. The values are taken less `level`.
double correlationAt(const PaddedImage& reference, const PaddedImage& frame, int dx, int dy, int step, float level) {
  const int x0 = std::max(0, -dx), x1 = std::min(reference.width(), frame.width() - dx);
  const int y0 = std::max(0, -dy), y1 = std::min(reference.height(), frame.height() - dy);
  if (10 * std::int64_t{std::max(0, x1 - x0)} * std::max(0, y1 - y0) <
      4 * std::int64_t{reference.width()} * reference.height()) {
    return -2;
  }
  Correlation sums;
  for (int y = y0; y < y1; y += step) {
    const float* const a = reference.row(y);
    const float* const b = frame.row(y + dy) + dx;
    float rows[correlationSums * correlationLanes];
    const int count = (x1 - x0 + step - 1) / step;
    localMotionKernels().correlateRows(a + x0, b + x0, step, count, level, rows);
    sums.count += count;
    for (int l = 0; l < correlationLanes; ++l) {
      sums.a += static_cast<double>(rows[sumA * correlationLanes + l]);
      sums.b += static_cast<double>(rows[sumB * correlationLanes + l]);
      sums.aa += static_cast<double>(rows[sumAA * correlationLanes + l]);
      sums.bb += static_cast<double>(rows[sumBB * correlationLanes + l]);
      sums.ab += static_cast<double>(rows[sumAB * correlationLanes + l]);
    }
  }
  return sums.count > 0 ? sums.normalised() : -2;
}

}  // namespace

AffineMotion searchShift(const BlurredPyramid& reference, const BlurredPyramid& frame) {
  int bestX = 0, bestY = 0;
  const auto searchAround = [&](int level, int centreX, int centreY, int reachX, int reachY, int step) {
    const PaddedImage& a = reference.level(level).values;
    const PaddedImage& b = frame.level(level).values;
    const float middle = a.row(a.height() / 2)[a.width() / 2];
    double best = -3;
    for (int dy = centreY - reachY; dy <= centreY + reachY; ++dy) {
      for (int dx = centreX - reachX; dx <= centreX + reachX; ++dx) {
        const double value = correlationAt(a, b, dx, dy, step, middle);
        if (value > best) {
          best = value;
          bestX = dx;
          bestY = dy;
        }
      }
    }
  };
  const int top = reference.levels() - 1;
  const PaddedImage& coarsest = reference.level(top).values;
  searchAround(top, 0, 0, coarsest.width() * 6 / 10, coarsest.height() * 6 / 10, 1);
  for (int level = top - 1; level >= 1; --level) {
    searchAround(level, 2 * bestX, 2 * bestY, 1, 1, level == 1 ? 2 : 1);
  }
  AffineMotion motion;
  const int scale = top == 0 ? 1 : 2;  // the last level searched is 1
  motion.x = bestX * scale;
  motion.y = bestY * scale;
  return motion;
}

}  // namespace movra::vision::detail
