#include "vision/superresolution/detail/localmotion/AffineEstimation.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"
#include "vision/superresolution/detail/localmotion/RobustStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr int unknowns = 7;  // shift, four entries of the matrix, level
constexpr int coarseLevels = 2;
constexpr int coarseRounds = 6;
constexpr int fineRounds = 8;
constexpr double smallStep = 2e-3;     // pixels
constexpr double plausible = 0.2;      // largest entry of A - 1
constexpr double expectedTurn = 0.05;  // its standard deviation before anything is seen
constexpr std::size_t fewestPlaces = 60;

/// Solves the symmetric system by elimination with its own pivots in order; false if it is singular.
bool solve(double (&m)[unknowns][unknowns], double (&b)[unknowns]) {
  double whole[unknowns];
  for (int i = 0; i < unknowns; ++i) {
    whole[i] = m[i][i];
  }
  for (int i = 0; i < unknowns; ++i) {
    if (!(m[i][i] > 1e-9 * whole[i])) {
      return false;
    }
    for (int j = i + 1; j < unknowns; ++j) {
      const double f = m[j][i] / m[i][i];
      for (int k = i; k < unknowns; ++k) {
        m[j][k] -= f * m[i][k];
      }
      b[j] -= f * b[i];
    }
  }
  for (int i = unknowns - 1; i >= 0; --i) {
    for (int k = i + 1; k < unknowns; ++k) {
      b[i] -= m[i][k] * b[k];
    }
    b[i] /= m[i][i];
  }
  return true;
}

/// Adds the sums of a row at the place y to the normal equations.
void addRow(const double (&s)[normalSums], double y, double (&m)[unknowns][unknowns], double (&b)[unknowns]) {
  const double upper[unknowns][unknowns] = {{s[gxgx], s[gxgy], s[gxgx_x], s[gxgx] * y, s[gxgy_x], s[gxgy] * y, s[gx_]},
                                            {0, s[gygy], s[gxgy_x], s[gxgy] * y, s[gygy_x], s[gygy] * y, s[gy_]},
                                            {0, 0, s[gxgx_xx], s[gxgx_x] * y, s[gxgy_xx], s[gxgy_x] * y, s[gx_x]},
                                            {0, 0, 0, s[gxgx] * y * y, s[gxgy_x] * y, s[gxgy] * y * y, s[gx_] * y},
                                            {0, 0, 0, 0, s[gygy_xx], s[gygy_x] * y, s[gy_x]},
                                            {0, 0, 0, 0, 0, s[gygy] * y * y, s[gy_] * y},
                                            {0, 0, 0, 0, 0, 0, s[weights_]}};
  const double right[unknowns] = {s[gx_e], s[gy_e], s[gx_xe], s[gx_e] * y, s[gy_xe], s[gy_e] * y, s[e_]};
  for (int i = 0; i < unknowns; ++i) {
    for (int j = i; j < unknowns; ++j) {
      m[i][j] += upper[i][j];
    }
    b[i] += right[i];
  }
}

}  // namespace

struct AffineEstimation::Scratch {
  std::vector<float> difference;
  std::vector<unsigned char> inside;
  std::vector<float> sample;
};

AffineEstimation::AffineEstimation(const MotionFrame& givenReference) : reference(givenReference) {
  for (int l = 0; l <= std::min(coarseLevels, reference.pyramid->levels() - 1); ++l) {
    grids.emplace_back(*reference.pyramid, l);
  }
}

AffineMotion AffineEstimation::estimate(const MotionFrame& frame, const AffineMotion& start, int coarsest,
                                        const char* where) const {
  AffineMotion motion = start;
  Scratch scratch;
  for (int l = std::min(coarsest, coarsestLevel()); l >= 0; --l) {
    const int rounds = l == 0 ? fineRounds : coarseRounds;
    for (int i = 0; i < rounds; ++i) {
      double moved = 0;
      if (!step(grids[static_cast<std::size_t>(l)], frame, where, motion, scratch, moved)) {
        return start;
      }
      if (moved < smallStep * (1 << l)) {
        break;
      }
    }
  }
  return motion;
}

bool AffineEstimation::step(const ReferenceGrid& grid, const MotionFrame& frame, const char* where,
                            AffineMotion& motion, Scratch& scratch, double& moved) const {
  grid.compare(*frame.pyramid, motion, frame.usable, reference.usable, scratch.difference, scratch.inside);
  if (where != nullptr) {
    grid.keepInside(where, scratch.inside);
  }
  scratch.sample.clear();
  const std::size_t every = std::max<std::size_t>(1, grid.size() / 20000);
  std::size_t count = 0;
  for (std::size_t i = 0; i < grid.size(); ++i) {
    count += scratch.inside[i];
    if (i % every == 0 && scratch.inside[i] != 0) {
      scratch.sample.push_back(scratch.difference[i]);
    }
  }
  if (count < fewestPlaces) {
    return false;
  }
  const RobustSpread spread = robustSpread(scratch.sample);
  const float limit = 2 * spread.deviation + 1e-9f + 1e-6f * std::abs(spread.median);

  double m[unknowns][unknowns] = {};
  double b[unknowns] = {};
  for (int r = 0; r < grid.rows(); ++r) {
    const std::size_t begin = static_cast<std::size_t>(r) * static_cast<std::size_t>(grid.columns());
    float lanes[normalSums * motionLanes] = {};
    localMotionKernels().addNormalRow(grid.gradientXRow(r), grid.gradientYRow(r), scratch.difference.data() + begin,
                                      grid.places(), scratch.inside.data() + begin, spread.median, limit,
                                      grid.columns(), lanes);
    double sums[normalSums];
    for (int s = 0; s < normalSums; ++s) {
      sums[s] = 0;
      for (int l = 0; l < motionLanes; ++l) {
        sums[s] += static_cast<double>(lanes[s * motionLanes + l]);
      }
    }
    addRow(sums, grid.place(r), m, b);
  }
  // The unknowns of the matrix are in pixels of the level per half width of the frame.
  const double unit = 0.5 * reference.pyramid->level(0).values.width() / grid.scale();
  const double error = 0.5 * static_cast<double>(limit);
  const double prior = error * error / (expectedTurn * unit * expectedTurn * unit);
  for (int i = 0; i < unknowns; ++i) {
    m[i][i] += i >= 2 && i < 6 ? prior : 0;
    for (int j = 0; j < i; ++j) {
      m[i][j] = m[j][i];
    }
  }
  if (!solve(m, b)) {
    return false;
  }
  AffineMotion next = motion;
  next.x += b[0] * grid.scale();
  next.y += b[1] * grid.scale();
  next.xx += b[2] / unit;
  next.xy += b[3] / unit;
  next.yx += b[4] / unit;
  next.yy += b[5] / unit;
  const double turn = std::max({std::abs(next.xx - 1), std::abs(next.xy), std::abs(next.yx), std::abs(next.yy - 1)});
  if (!(turn < plausible) || !std::isfinite(next.x) || !std::isfinite(next.y)) {
    return false;
  }
  motion = next;
  moved = 0;
  for (int i = 0; i < 6; ++i) {
    moved = std::max(moved, std::abs(b[i]) * grid.scale());
  }
  return true;
}

}  // namespace movra::vision::detail
