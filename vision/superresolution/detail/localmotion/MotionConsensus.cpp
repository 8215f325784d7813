#include "vision/superresolution/detail/localmotion/MotionConsensus.h"

#include <algorithm>
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
  std::size_t block;
};

std::vector<Place> placesOf(const BlockShifts& layout, const std::vector<BlockShift>& blocks, int width, int height) {
  std::vector<Place> places;
  for (int r = 0; r < layout.rows(); ++r) {
    for (int c = 0; c < layout.columns(); ++c) {
      const auto i = static_cast<std::size_t>(r * layout.columns() + c);
      if (blocks[i].known) {
        places.push_back({layout.middleX(c) - 0.5 * (width - 1), layout.middleY(r) - 0.5 * (height - 1), blocks[i].x,
                          blocks[i].y, i});
      }
    }
  }
  return places;
}

/// shift = a + b x + c y, for both components.
struct Plane {
  double a[2], b[2], c[2];

  /// 1 - d^2 / tolerance^2, d the distance of the shift; 0 where it is too far off.
  double closeness(const Place& p) const {
    const double dx = a[0] + b[0] * p.x + c[0] * p.y - p.shiftX;
    const double dy = a[1] + b[1] * p.x + c[1] * p.y - p.shiftY;
    return std::max(0.0, 1 - (dx * dx + dy * dy) / (tolerance * tolerance));
  }

  bool agrees(const Place& p) const { return closeness(p) > 0; }

  AffineMotion motion() const { return {1 + b[0], c[0], b[1], 1 + c[1], a[0], a[1]}; }
};

Plane planeOf(const AffineMotion& motion) {
  return {{motion.x, motion.y}, {motion.xx - 1, motion.yx}, {motion.xy, motion.yy - 1}};
}

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

Agreement agreementOf(const BlockShifts& layout, const std::vector<BlockShift>& blocks, const AffineMotion& motion,
                      int width, int height) {
  if (!enoughBlocks(blocks)) {
    return {1, 1};
  }
  const Plane plane = planeOf(motion);
  Agreement agreement;
  double known = 0;
  for (const Place& place : placesOf(layout, blocks, width, height)) {
    const double closeness = plane.closeness(place);
    known += 1;
    agreement.share += closeness > 0 ? 1 : 0;
    agreement.closeness += closeness;
  }
  return {agreement.share / known, agreement.closeness / known};
}

std::vector<BlockShift> withoutAgreeing(const BlockShifts& layout, std::vector<BlockShift> blocks,
                                        const AffineMotion& motion, int width, int height) {
  const Plane plane = planeOf(motion);
  for (const Place& place : placesOf(layout, blocks, width, height)) {
    if (plane.agrees(place)) {
      blocks[place.block].known = false;
    }
  }
  return blocks;
}

SharedMotion findConsensus(const BlockShifts& layout, const std::vector<BlockShift>& blocks, int width, int height) {
  const std::vector<Place> places = placesOf(layout, blocks, width, height);
  if (places.size() < fewestBlocks) {
    return {};
  }
  Draws draws;
  Plane best{};
  double closest = 0;
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
    double closeness = 0;
    for (const Place& place : places) {
      closeness += plane.closeness(place);
    }
    if (closeness > closest) {
      closest = closeness;
      best = plane;
    }
  }
  if (closest == 0) {
    return {};
  }
  for (int i = 0; i < refinements; ++i) {
    const Plane before = best;
    if (std::count_if(places.begin(), places.end(), [&](const Place& p) { return before.agrees(p); }) < fewestInliers ||
        !fit(
            places, [&](std::size_t k) { return before.agrees(places[k]); }, best)) {
      return {};
    }
  }
  SharedMotion result{};
  result.motion = best.motion();
  result.agreement = agreementOf(layout, blocks, result.motion, width, height);
  return result;
}

TwoMotions findTwoMotions(const BlockShifts& layout, const std::vector<BlockShift>& blocks, int width, int height) {
  const std::vector<Place> places = placesOf(layout, blocks, width, height);
  if (places.size() < 2 * fewestBlocks) {
    return {};
  }
  const double leastDistance = 3 * layout.step();
  Draws draws;
  Plane best[2] = {};
  double closest = 0;
  for (int i = 0; i < 3 * tries; ++i) {
    const Place& a = places[draws.below(places.size())];
    const Place& b = places[draws.below(places.size())];
    const Place& c = places[draws.below(places.size())];
    const double dx = b.x - a.x, dy = b.y - a.y, squared = dx * dx + dy * dy;
    if (squared < leastDistance * leastDistance) {
      continue;
    }
    const double ex = b.shiftX - a.shiftX, ey = b.shiftY - a.shiftY;
    const double zoom = (ex * dx + ey * dy) / squared, turn = (ey * dx - ex * dy) / squared;
    if (std::abs(zoom) > steepest || std::abs(turn) > steepest) {
      continue;
    }
    const auto planeAt = [&](const Place& p) {
      return Plane{
          {p.shiftX - zoom * p.x + turn * p.y, p.shiftY - turn * p.x - zoom * p.y}, {zoom, turn}, {-turn, zoom}};
    };
    const Plane planes[2] = {planeAt(a), planeAt(c)};
    if (planes[0].agrees(c)) {
      continue;
    }
    double closeness = 0;
    for (const Place& place : places) {
      closeness += std::max(planes[0].closeness(place), planes[1].closeness(place));
    }
    if (closeness > closest) {
      closest = closeness;
      best[0] = planes[0];
      best[1] = planes[1];
    }
  }
  TwoMotions result{};
  const double part = 1 / static_cast<double>(places.size());
  result.agreement.closeness = part * closest;
  double shares[2] = {};
  for (const Place& place : places) {
    const double near[2] = {best[0].closeness(place), best[1].closeness(place)};
    if (std::max(near[0], near[1]) > 0) {
      shares[near[0] >= near[1] ? 0 : 1] += part;
    }
  }
  result.agreement.share = shares[0] + shares[1];
  result.lesserShare = std::min(shares[0], shares[1]);
  const int first = shares[0] >= shares[1] ? 0 : 1;
  result.motions[0] = best[first].motion();
  result.motions[1] = best[1 - first].motion();
  return result;
}

}  // namespace movra::vision::detail
