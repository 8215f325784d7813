#include "vision/superresolution/detail/sensor/Outliers.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/sensor/OrderStatistics.h"
#include "vision/superresolution/detail/sensor/TemporalStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr double candidateLimit = 6;     // times what is typical around the pixel
constexpr double candidateShare = 0.03;  // of all pixels, at most
constexpr float steadyShare = 0.4f;      // of the median, that all frames but one have to show

constexpr float partOfDetail = 0.2f;  // that is left where a point falls between four pixels
constexpr float sameDetail = 0.4f;    // of a pixel's detail, at the place where the scene has moved to

/// Pixel less the median of its eight neighbours; 0 in the outermost pixels and where a pixel is not measured.
float detailAt(const float* image, int width, int height, int x, int y) {
  if (x < 1 || y < 1 || x >= width - 1 || y >= height - 1) {
    return 0;
  }
  float near[8];
  int count = 0;
  const float* const middle = image + static_cast<std::ptrdiff_t>(y) * width + x;
  for (int v = -1; v <= 1; ++v) {
    for (int u = -1; u <= 1; ++u) {
      if (u != 0 || v != 0) {
        near[count++] = middle[static_cast<std::ptrdiff_t>(v) * width + u];
      }
    }
  }
  std::nth_element(near, near + 4, near + 8);
  const float detail = *middle - 0.5f * (near[4] + *std::max_element(near, near + 4));
  return std::isfinite(detail) ? detail : 0;
}

/// Whether frame k shows a detail of at least this size near the place; `itself` is looked at in no case.
enum class Shown { no, yes, unknown };

Shown showsNear(const FrameStack& frames, int k, double x, double y, float least, int itselfX, int itselfY) {
  if (!(x >= 1 && y >= 1 && x < frames.width - 2 && y < frames.height - 2)) {
    return Shown::unknown;
  }
  const int left = static_cast<int>(x), top = static_cast<int>(y);
  if (itselfX >= left - 1 && itselfX <= left + 2 && itselfY >= top - 1 && itselfY <= top + 2) {
    return Shown::unknown;
  }
  for (int v = top; v <= top + 1; ++v) {
    for (int u = left; u <= left + 1; ++u) {
      const float other = detailAt(frames.frames[k], frames.width, frames.height, u, v);
      if (least > 0 ? other >= least : other <= least) {
        return Shown::yes;
      }
    }
  }
  return Shown::no;
}

std::vector<double> strengths(const std::vector<Outlier>& outliers) {
  std::vector<double> result;
  for (const Outlier& outlier : outliers) {
    result.push_back(outlier.strength);
  }
  return result;
}

}  // namespace

std::vector<Outlier> outliersOf(const std::vector<float>& values, const std::vector<float>& around, int width,
                                int height, double limit, double globally, double quantile) {
  std::vector<Outlier> result;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const double value = std::abs(static_cast<double>(values[i]));
    if (value > limit * globally) {
      const int x = static_cast<int>(i % static_cast<std::size_t>(width));
      const int y = static_cast<int>(i / static_cast<std::size_t>(width));
      const double typical = static_cast<double>(typicalAround(around, width, height, x, y)) / quantile;
      const double strength = value / std::max(typical, globally);
      if (strength > limit) {
        result.push_back({i, strength});
      }
    }
  }
  return result;
}

double roundingOf(const FrameStack& frames) {
  std::vector<float> values = sampleOf(frames, 4096);
  return 1e-30 + 4.8e-7 * std::abs(static_cast<double>(medianOf(values)));
}

double deviationOf(std::vector<float> values) {
  return robustDeviation(values);
}

bool movesWithScene(const FrameStack& frames, const std::vector<AffineMotion>& motions, int x, int y) {
  int shown = 0, missing = 0;
  for (int j = 0; j < frames.count; ++j) {
    const float detail = detailAt(frames.frames[j], frames.width, frames.height, x, y);
    const AffineMotion::Shift there = motions[static_cast<std::size_t>(j)].shiftAt(x, y, frames.width, frames.height);
    for (int k = 0; k < frames.count && detail != 0; ++k) {
      const AffineMotion::Shift here =
          motions[static_cast<std::size_t>(k)].shiftAt(x - there.x, y - there.y, frames.width, frames.height);
      const Shown found =
          k == j ? Shown::unknown
                 : showsNear(frames, k, x - there.x + here.x, y - there.y + here.y, sameDetail * detail, x, y);
      shown += found == Shown::yes ? 1 : 0;
      missing += found == Shown::no ? 1 : 0;
    }
  }
  return shown > missing;
}

bool showsInOtherFrames(const FrameStack& frames, const std::vector<AffineMotion>& motions, int x, int y) {
  std::size_t worst = 0;
  float detail = 0;
  for (int k = 0; k < frames.count; ++k) {
    const float own = detailAt(frames.frames[k], frames.width, frames.height, x, y);
    if (std::abs(own) > std::abs(detail)) {
      detail = own;
      worst = static_cast<std::size_t>(k);
    }
  }
  const AffineMotion::Shift there = motions[worst].shiftAt(x, y, frames.width, frames.height);
  int shown = 0, missing = 0;
  for (int k = 0; k < frames.count && detail != 0; ++k) {
    const AffineMotion::Shift here =
        motions[static_cast<std::size_t>(k)].shiftAt(x - there.x, y - there.y, frames.width, frames.height);
    const Shown found = k == static_cast<int>(worst) ? Shown::unknown
                                                     : showsNear(frames, k, x - there.x + here.x, y - there.y + here.y,
                                                                 partOfDetail * detail, x, y);
    shown += found == Shown::yes ? 1 : 0;
    missing += found == Shown::no ? 1 : 0;
  }
  return shown > missing;
}

std::vector<Outlier> spatialOutliers(const FrameStack& frames) {
  const MedianDetail found = medianDetail(frames);
  const std::vector<float>& detail = found.median;
  const double globally = std::max(deviationOf(detail), roundingOf(frames));
  std::vector<Outlier> outliers =
      outliersOf(detail, detail, frames.width, frames.height, candidateLimit, globally, quantileOfDeviation);
  // What the scene shows there moves away; a fault stays.
  outliers.erase(std::remove_if(outliers.begin(), outliers.end(),
                                [&](const Outlier& o) {
                                  return found.weakest[o.pixel] < steadyShare * std::abs(detail[o.pixel]);
                                }),
                 outliers.end());
  const auto most = static_cast<std::size_t>(candidateShare * static_cast<double>(frames.pixels()));
  if (outliers.size() > most) {
    std::vector<double> sorted = strengths(outliers);
    std::sort(sorted.begin(), sorted.end(), [](double a, double b) { return a > b; });
    const double limit = sorted[most];
    outliers.erase(
        std::remove_if(outliers.begin(), outliers.end(), [&](const Outlier& o) { return o.strength <= limit; }),
        outliers.end());
  }
  return outliers;
}

}  // namespace movra::vision::detail
