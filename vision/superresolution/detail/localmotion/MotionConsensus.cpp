#include "vision/superresolution/detail/localmotion/MotionConsensus.h"

#include <cmath>
#include <cstdint>

namespace movra::vision::detail {

namespace {

constexpr double tolerance = 0.25;  // pixels
constexpr int tries = 300;
constexpr int refinements = 4;
constexpr double steepest = 0.05;  // entry of A - 1
constexpr std::size_t fewestBlocks = 12;
constexpr int fewestInliers = 6;

/// A known block about the middle of the image.
struct Place {
  double x, y, shiftX, shiftY;
};

/// shift = a + b x + c y, for both components.
struct Plane {
  double a[2], b[2], c[2];

  bool agrees(const Place& p) const {
    const double dx = a[0] + b[0] * p.x + c[0] * p.y - p.shiftX;
    const double dy = a[1] + b[1] * p.x + c[1] * p.y - p.shiftY;
    return dx * dx + dy * dy < tolerance * tolerance;
  }
};

/// Least squares over the chosen places; false if they lie on a line.
template <class Chosen>
bool fit(const std::vector<Place>& places, Chosen chosen, Plane& plane) {
  double n = 0, x = 0, y = 0, s[2] = {};
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (chosen(i)) {
      n += 1;
      x += places[i].x;
      y += places[i].y;
      s[0] += places[i].shiftX;
      s[1] += places[i].shiftY;
    }
  }
  if (n < 3) {
    return false;
  }
  x /= n;
  y /= n;
  s[0] /= n;
  s[1] /= n;
  double xx = 0, xy = 0, yy = 0, xs[2] = {}, ys[2] = {};
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (chosen(i)) {
      const double dx = places[i].x - x, dy = places[i].y - y;
      const double d[2] = {places[i].shiftX - s[0], places[i].shiftY - s[1]};
      xx += dx * dx;
      xy += dx * dy;
      yy += dy * dy;
      for (int k = 0; k < 2; ++k) {
        xs[k] += dx * d[k];
        ys[k] += dy * d[k];
      }
    }
  }
  const double determinant = xx * yy - xy * xy;
  if (!(determinant > 1e-6 * xx * yy)) {
    return false;
  }
  for (int k = 0; k < 2; ++k) {
    plane.b[k] = (yy * xs[k] - xy * ys[k]) / determinant;
    plane.c[k] = (xx * ys[k] - xy * xs[k]) / determinant;
    plane.a[k] = s[k] - plane.b[k] * x - plane.c[k] * y;
  }
  return true;
}

/// Numbers that look random and are the same everywhere (D. E. Knuth's linear congruential generator).
class Draws {
 public:
  std::size_t below(std::size_t n) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<std::size_t>(((state >> 33) * n) >> 31);
  }

 private:
  std::uint64_t state = 1;
};

}  // namespace

bool enoughBlocks(const std::vector<BlockShift>& blocks) {
  std::size_t known = 0;
  for (const BlockShift& block : blocks) {
    known += block.known ? 1 : 0;
  }
  return known >= fewestBlocks;
}

double shareAgreeing(const BlockShifts& layout, const std::vector<BlockShift>& blocks, const AffineMotion& motion,
                     int width, int height) {
  if (!enoughBlocks(blocks)) {
    return 1;
  }
  double known = 0, agreeing = 0;
  for (int r = 0; r < layout.rows(); ++r) {
    for (int c = 0; c < layout.columns(); ++c) {
      const BlockShift& block = blocks[static_cast<std::size_t>(r * layout.columns() + c)];
      if (block.known) {
        const AffineMotion::Shift s = motion.shiftAt(layout.middleX(c), layout.middleY(r), width, height);
        const double dx = s.x - block.x, dy = s.y - block.y;
        known += 1;
        agreeing += dx * dx + dy * dy < tolerance * tolerance ? 1 : 0;
      }
    }
  }
  return agreeing / known;
}

SharedMotion findConsensus(const BlockShifts& layout, const std::vector<BlockShift>& blocks, int width, int height) {
  std::vector<Place> places;
  for (int r = 0; r < layout.rows(); ++r) {
    for (int c = 0; c < layout.columns(); ++c) {
      const BlockShift& block = blocks[static_cast<std::size_t>(r * layout.columns() + c)];
      if (block.known) {
        places.push_back(
            {layout.middleX(c) - 0.5 * (width - 1), layout.middleY(r) - 0.5 * (height - 1), block.x, block.y});
      }
    }
  }
  if (places.size() < fewestBlocks) {
    return {{}, 0};
  }
  Draws draws;
  Plane best{};
  int most = 0;
  for (int i = 0; i < tries; ++i) {
    const std::size_t a = draws.below(places.size()), b = draws.below(places.size()), c = draws.below(places.size());
    Plane plane{};
    if (a == b || b == c || a == c ||
        !fit(
            places, [=](std::size_t k) { return k == a || k == b || k == c; }, plane)) {
      continue;
    }
    if (std::abs(plane.b[0]) > steepest || std::abs(plane.b[1]) > steepest || std::abs(plane.c[0]) > steepest ||
        std::abs(plane.c[1]) > steepest) {
      continue;
    }
    int count = 0;
    for (const Place& place : places) {
      count += plane.agrees(place) ? 1 : 0;
    }
    if (count > most) {
      most = count;
      best = plane;
    }
  }
  for (int i = 0; i < refinements && most >= fewestInliers; ++i) {
    const Plane before = best;
    if (!fit(
            places, [&](std::size_t k) { return before.agrees(places[k]); }, best)) {
      return {{}, 0};
    }
    most = 0;
    for (const Place& place : places) {
      most += best.agrees(place) ? 1 : 0;
    }
  }
  if (most < fewestInliers) {
    return {{}, 0};
  }
  SharedMotion result{};
  result.motion = {1 + best.b[0], best.c[0], best.b[1], 1 + best.c[1], best.a[0], best.a[1]};
  result.share = static_cast<double>(most) / static_cast<double>(places.size());
  return result;
}

}  // namespace movra::vision::detail
