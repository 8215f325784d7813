#include "vision/superresolution/detail/localmotion/MotionField.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/localmotion/RobustStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr double largestDeparture = 2;  // pixels; blocks beyond it are wrong
constexpr double leastSpread = 0.01;    // pixels; less is no local motion

/// Departure of a block from the affine motion.
struct Departure {
  bool known = false;
  double x = 0;
  double y = 0;
};

}  // namespace

MotionField::MotionField(const AffineMotion& affine, int width, int height, const BlockShifts& layout,
                         const std::vector<BlockShift>& blocks)
    : MotionField(affine, width, height) {
  const auto at = [&](int c, int r) { return static_cast<std::size_t>(r * layout.columns() + c); };
  std::vector<Departure> departures(blocks.size());
  for (int r = 0; r < layout.rows(); ++r) {
    for (int c = 0; c < layout.columns(); ++c) {
      const BlockShift& block = blocks[at(c, r)];
      const AffineMotion::Shift s = affine.shiftAt(layout.middleX(c), layout.middleY(r), width, height);
      const double dx = block.x - s.x, dy = block.y - s.y;
      if (block.known && dx * dx + dy * dy < largestDeparture * largestDeparture) {
        departures[at(c, r)] = {true, dx, dy};
      }
    }
  }
  // What blocks without a common pixel share is motion; the noise of each is its own.
  std::vector<float> products;
  const auto compare = [&](const Departure& a, const Departure& b) {
    if (a.known && b.known) {
      products.push_back(static_cast<float>(0.5 * (a.x * b.x + a.y * b.y)));
    }
  };
  for (int r = 0; r < layout.rows(); ++r) {
    for (int c = 0; c < layout.columns(); ++c) {
      if (c + 2 < layout.columns()) {
        compare(departures[at(c, r)], departures[at(c + 2, r)]);
      }
      if (r + 2 < layout.rows()) {
        compare(departures[at(c, r)], departures[at(c, r + 2)]);
      }
    }
  }
  if (products.size() < 12) {
    return;
  }
  // Mean of the middle nine tenths, which a few wrong blocks cannot move.
  std::sort(products.begin(), products.end());
  const std::size_t cut = products.size() / 20;
  double sum = 0;
  for (std::size_t i = cut; i < products.size() - cut; ++i) {
    sum += static_cast<double>(products[i]);
  }
  const double variance = sum / static_cast<double>(products.size() - 2 * cut);
  if (!(variance > leastSpread * leastSpread)) {
    return;
  }

  spread_ = std::sqrt(variance);
  columns = layout.columns();
  rows = layout.rows();
  left = layout.middleX(0);
  top = layout.middleY(0);
  step = layout.step();
  departuresX.resize(blocks.size());
  departuresY.resize(blocks.size());
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (!departures[i].known) {
      continue;
    }
    // (I + 1 / variance) d = I departure
    const BlockShift& block = blocks[i];
    const double xx = block.xx + 1 / variance, yy = block.yy + 1 / variance, xy = block.xy;
    const double bx = block.xx * departures[i].x + block.xy * departures[i].y;
    const double by = block.xy * departures[i].x + block.yy * departures[i].y;
    const double determinant = xx * yy - xy * xy;
    departuresX[i] = (yy * bx - xy * by) / determinant;
    departuresY[i] = (xx * by - xy * bx) / determinant;
  }
}

double MotionField::steepest() const {
  const auto length = [](double a, double b) { return std::sqrt(a * a + b * b); };
  const double turn =
      std::max(length(affineMotion.xx - 1, affineMotion.yx), length(affineMotion.xy, affineMotion.yy - 1));
  if (isAffine()) {
    return turn;
  }
  std::vector<float> changes;
  const auto change = [&](std::size_t a, std::size_t b) {
    const double dx = departuresX[a] - departuresX[b], dy = departuresY[a] - departuresY[b];
    changes.push_back(static_cast<float>(std::sqrt(dx * dx + dy * dy) / step));
  };
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      const std::size_t i = static_cast<std::size_t>(r * columns + c);
      if (c + 1 < columns) {
        change(i, i + 1);
      }
      if (r + 1 < rows) {
        change(i, i + static_cast<std::size_t>(columns));
      }
    }
  }
  return turn + static_cast<double>(orderStatistic(changes, changes.size() * 9 / 10));
}

AffineMotion::Shift MotionField::shiftAt(double x, double y) const {
  AffineMotion::Shift shift = affineMotion.shiftAt(x, y, frameWidth, frameHeight);
  if (isAffine()) {
    return shift;
  }
  const double u = std::clamp((x - left) / step, 0.0, static_cast<double>(columns - 1));
  const double v = std::clamp((y - top) / step, 0.0, static_cast<double>(rows - 1));
  const int c = std::min(static_cast<int>(u), std::max(0, columns - 2));
  const int r = std::min(static_cast<int>(v), std::max(0, rows - 2));
  const double fx = u - c, fy = v - r;
  const std::size_t i = static_cast<std::size_t>(r * columns + c);
  const std::size_t right = columns > 1 ? 1 : 0;
  const std::size_t below = rows > 1 ? static_cast<std::size_t>(columns) : 0;
  const auto blend = [&](const std::vector<double>& d) {
    return (1 - fy) * ((1 - fx) * d[i] + fx * d[i + right]) +
           fy * ((1 - fx) * d[i + below] + fx * d[i + below + right]);
  };
  shift.x += blend(departuresX);
  shift.y += blend(departuresY);
  return shift;
}

std::vector<int> MotionField::breaks() const {
  std::vector<int> result{0};
  if (!isAffine()) {
    for (int c = 0; c < columns; ++c) {
      result.push_back(static_cast<int>(left + c * step));
    }
  }
  result.push_back(frameWidth);
  return result;
}

}  // namespace movra::vision::detail
