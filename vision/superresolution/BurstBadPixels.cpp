#include "vision/superresolution/BurstBadPixels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/LocalMedian.h"
#include "vision/superresolution/detail/sensor/MotionSpread.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"
#include "vision/superresolution/detail/sensor/TemporalStatistics.h"

namespace movra::vision {

namespace {

using namespace detail;

constexpr double candidateLimit = 6;           // times what is typical around the pixel
constexpr double stuckLimit = 8;               //
constexpr double flickerLimit = 12;            //
constexpr double onceLimit = 20;               // for the worst frame alone
constexpr double candidateShare = 0.03;        // of all pixels, at most
constexpr double quantileOfDeviation = 1.036;  // 0.7-quantile of |x| for a normal distribution of deviation 1
constexpr double medianOfDeviation = 0.6745;   // median of it
constexpr int borderRows = 2;                  // where predictions are weak
constexpr double weakFactor = 2;
constexpr double weakRangeFactor = 4;
constexpr double rangeShare = 0.1;        // of the prediction's range around the pixel
constexpr double onceRangeFactor = 3;     // times that for the worst frame alone
constexpr double strictRangeShare = 0.6;  // when frames lie less than a pixel apart
constexpr int largestGroup = 2;           // when frames lie less than a pixel apart
constexpr double strictDistance = 1;
constexpr double leastDistance = 0.3;

/// A pixel and how many times its value is what is typical around it.
struct Outlier {
  std::size_t pixel;
  double strength;
};

std::vector<double> strengths(const std::vector<Outlier>& outliers) {
  std::vector<double> result;
  for (const Outlier& outlier : outliers) {
    result.push_back(outlier.strength);
  }
  return result;
}

// Pixels whose |value| exceeds `limit` times what is typical: `globally`, and in their 7 x 7 neighbourhood of `around`.
// Most pixels fail the first test, so that the second one is rarely needed.
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

// What rounding alone does to values of this size: nothing below counts as typical, or noise-free frames would be full
// of outliers.
double roundingOf(const FrameStack& frames) {
  std::vector<float> values = sampleOf(frames, 4096);
  return 1e-30 + 4.8e-7 * std::abs(static_cast<double>(medianOf(values)));
}

double robustDeviationOf(std::vector<float> values) {
  return robustDeviation(values);
}

std::vector<Outlier> spatialOutliers(const FrameStack& frames) {
  const std::vector<float> detail = medianDetail(frames);
  const double globally = std::max(robustDeviationOf(detail), roundingOf(frames));
  std::vector<Outlier> outliers =
      outliersOf(detail, detail, frames.width, frames.height, candidateLimit, globally, quantileOfDeviation);
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

/// The frames and residuals of a round, and the tests of one pixel in them.
class Round {
 public:
  Round(const FrameStack& frames_, const FrameStack& residuals_, double rangeFactor_)
      : frames(frames_), residuals(residuals_), rangeFactor(rangeFactor_) {}

  /// By kind; a pixel may be found several times, the first time as what it is.
  std::vector<BadPixelFinding> findings() {
    const TemporalStatistics statistics = temporalStatisticsOf(residuals);
    const double rounding = roundingOf(frames);
    const double ofMedians = std::max(robustDeviationOf(statistics.median), rounding);
    const double ofAll = std::max(robustDeviation(residuals), rounding);
    collect(statistics.median,
            outliersOf(statistics.median, statistics.median, frames.width, frames.height, stuckLimit, ofMedians,
                       quantileOfDeviation),
            {stuckLimit, rangeFactor, 0});
    collect(statistics.secondLargest,
            outliersOf(statistics.secondLargest, statistics.medianOfAbsolute, frames.width, frames.height, flickerLimit,
                       ofAll, medianOfDeviation),
            {flickerLimit, rangeFactor, 2});
    collect(statistics.largest,
            outliersOf(statistics.largest, statistics.medianOfAbsolute, frames.width, frames.height, onceLimit, ofAll,
                       medianOfDeviation),
            {onceLimit, onceRangeFactor * rangeFactor, 1});
    return std::move(found);
  }

 private:
  struct Test {
    double limit;        // times what is typical; twice that near the border
    double rangeFactor;  // of the detail that the prediction has there
    int worst;           // compares the worst frame (1) or the second worst (2); 0: the median frame
  };

  std::size_t indexOf(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(frames.width) + static_cast<std::size_t>(x);
  }
  int columnOf(std::size_t pixel) const { return static_cast<int>(pixel % static_cast<std::size_t>(frames.width)); }
  int rowOf(std::size_t pixel) const { return static_cast<int>(pixel / static_cast<std::size_t>(frames.width)); }

  // Adds the outliers that are off by more than the detail there explains.
  void collect(const std::vector<float>& deviations, const std::vector<Outlier>& outliers, const Test& test) {
    for (const Outlier& outlier : outliers) {
      const int x = columnOf(outlier.pixel);
      const int y = rowOf(outlier.pixel);
      const bool ends = predictionEnds(x, y);
      const bool weak = ends || isBorder(x, y);
      const double deviation = static_cast<double>(deviations[outlier.pixel]);
      if (outlier.strength > test.limit * (weak ? weakFactor : 1) && !(ends && test.worst > 0) &&
          std::abs(deviation) > test.rangeFactor * (weak ? weakRangeFactor : 1) * detailAround(x, y, test.worst)) {
        found.push_back({x, y,
                         test.worst > 0               ? PixelFault::flickering
                         : standsStill(outlier.pixel) ? PixelFault::stuck
                                                      : PixelFault::offset,
                         deviation});
      }
    }
  }

  bool isBorder(int x, int y) const {
    return std::min(std::min(x, frames.width - 1 - x), std::min(y, frames.height - 1 - y)) < borderRows;
  }

  // Whether the prediction ends nearby in half of the frames: it is weak there, and flickers by itself.
  bool predictionEnds(int x, int y) const {
    int whole = 0;
    for (int k = 0; k < frames.count; ++k) {
      bool finite = true;
      for (int v = std::max(0, y - 2); v <= std::min(frames.height - 1, y + 2); ++v) {
        for (int u = std::max(0, x - 2); u <= std::min(frames.width - 1, x + 2); ++u) {
          finite = finite && std::isfinite(residuals.frames[k][indexOf(u, v)]);
        }
      }
      whole += finite ? 1 : 0;
    }
    return 2 * whole <= frames.count;
  }

  // Range of the prediction within 5 x 5 pixels, in the frame where it is largest or second largest, or in the median
  // frame.
  double detailAround(int x, int y, int largest) {
    ranges.clear();
    for (int k = 0; k < frames.count; ++k) {
      float low = 3e38f;
      float high = -3e38f;
      for (int v = std::max(0, y - 2); v <= std::min(frames.height - 1, y + 2); ++v) {
        for (int u = std::max(0, x - 2); u <= std::min(frames.width - 1, x + 2); ++u) {
          const std::size_t i = indexOf(u, v);
          const float prediction = frames.frames[k][i] - residuals.frames[k][i];
          low = prediction < low ? prediction : low;
          high = prediction > high ? prediction : high;
        }
      }
      if (high >= low) {
        ranges.push_back(high - low);
      }
    }
    if (largest == 0 || ranges.size() < 3) {
      return static_cast<double>(medianOf(ranges));
    }
    return static_cast<double>(orderStatistic(ranges, ranges.size() - static_cast<std::size_t>(largest)));
  }

  // Whether the pixel's value varies less over the frames than its residual.
  bool standsStill(std::size_t pixel) const {
    double sums[2] = {};
    double squares[2] = {};
    int count = 0;
    const float first = frames.frames[0][pixel];
    for (int k = 0; k < frames.count; ++k) {
      const double residual = static_cast<double>(residuals.frames[k][pixel]);
      const double value =
          static_cast<double>(frames.frames[k][pixel]) - (isMeasured(first) ? static_cast<double>(first) : 0);
      if (std::isfinite(residual) && std::isfinite(value)) {
        sums[0] += value;
        sums[1] += residual;
        squares[0] += value * value;
        squares[1] += residual * residual;
        ++count;
      }
    }
    return squares[0] - sums[0] * sums[0] / count < squares[1] - sums[1] * sums[1] / count;
  }

  FrameStack frames;
  FrameStack residuals;
  double rangeFactor;
  std::vector<BadPixelFinding> found;
  std::vector<float> ranges;
};

// Leaves the findings of which no more than one other touches the same group. Where frames lie less than a pixel apart,
// a small thing of the scene looks like a group of faults; single ones and pairs are what sensors have.
std::vector<BadPixelFinding> withoutGroups(const std::vector<BadPixelFinding>& found, int width, int height) {
  const auto w = static_cast<std::size_t>(width) + 2;
  std::vector<int> groupOf(w * (static_cast<std::size_t>(height) + 2), 0);
  const auto place = [&](const BadPixelFinding& f) {
    return (static_cast<std::size_t>(f.y) + 1) * w + static_cast<std::size_t>(f.x) + 1;
  };
  for (const BadPixelFinding& f : found) {
    groupOf[place(f)] = -1;
  }
  std::vector<int> sizes(1, 0);
  std::vector<std::size_t> edge;
  for (const BadPixelFinding& f : found) {
    if (groupOf[place(f)] != -1) {
      continue;
    }
    const auto group = static_cast<int>(sizes.size());
    sizes.push_back(0);
    groupOf[place(f)] = group;
    edge.assign(1, place(f));
    while (!edge.empty()) {
      const std::size_t at = edge.back();
      edge.pop_back();
      ++sizes.back();
      for (const std::size_t next : {at - w - 1, at - w, at - w + 1, at - 1, at + 1, at + w - 1, at + w, at + w + 1}) {
        if (groupOf[next] == -1) {
          groupOf[next] = group;
          edge.push_back(next);
        }
      }
    }
  }
  std::vector<BadPixelFinding> left;
  for (const BadPixelFinding& f : found) {
    if (sizes[static_cast<std::size_t>(groupOf[place(f)])] <= largestGroup) {
      left.push_back(f);
    }
  }
  return left;
}

bool before(const BadPixelFinding& a, const BadPixelFinding& b) {
  return std::pair(a.y, a.x) < std::pair(b.y, b.x);
}

// Whether the value is a whole number of 0 ... 255 after this scaling, within its rounding.
bool isStep(float value, float scale) {
  const float scaled = value * scale;
  const float whole = std::nearbyint(scaled);
  return whole >= 0 && whole <= 255 && std::abs(scaled - whole) <= (scale == 1 ? 0.0f : 2e-4f);
}

bool hasSteps(const FrameStack& frames, float scale) {
  for (int k = 0; k < frames.count; ++k) {
    for (std::size_t i = 0; i < frames.pixels(); ++i) {
      if (isMeasured(frames.frames[k][i]) && !isStep(frames.frames[k][i], scale)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace

const char* toString(PixelFault fault) {
  switch (fault) {
    case PixelFault::known:
      return "known";
    case PixelFault::flagged:
      return "flagged by the camera";
    case PixelFault::candidate:
      return "unlike its neighbours";
    case PixelFault::stuck:
      return "stuck";
    case PixelFault::offset:
      return "offset";
    case PixelFault::flickering:
      break;
  }
  return "flickering";
}

const char* toString(BadPixelSearch search) {
  switch (search) {
    case BadPixelSearch::notYet:
      return "candidates only: nothing has been compared with a prediction yet";
    case BadPixelSearch::done:
      return "searched";
    case BadPixelSearch::strict:
      return "searched with a stricter test, because the frames lie less than a pixel apart";
    case BadPixelSearch::tooLittleMotion:
      return "not searched, because the frames lie less than 0.3 pixels apart";
    case BadPixelSearch::tooFewFrames:
      return "not searched, because there is only one frame";
    case BadPixelSearch::eightBitData:
      break;
  }
  return "not searched, because 8-bit data have coarse steps and saturated edges that look like faults";
}

BurstBadPixels::BurstBadPixels(const FrameStack& frames) : width(frames.width), height(frames.height) {
  requireFrames(frames);
  bad.assign(frames.pixels(), 0);
  for (std::size_t i = 0; i < frames.pixels(); ++i) {
    int unmeasured = 0;
    for (int k = 0; k < frames.count; ++k) {
      unmeasured += isMeasured(frames.frames[k][i]) ? 0 : 1;
    }
    if (2 * unmeasured >= frames.count) {
      const auto w = static_cast<std::size_t>(width);
      fixed.push_back({static_cast<int>(i % w), static_cast<int>(i / w), PixelFault::flagged, 0});
    }
  }
  std::vector<BadPixelFinding> found;
  if (frames.count < 2) {
    state.search = BadPixelSearch::tooFewFrames;
  } else if (isEightBitData(frames)) {
    state.search = BadPixelSearch::eightBitData;
  } else {
    for (const Outlier& outlier : spatialOutliers(frames)) {
      const auto w = static_cast<std::size_t>(width);
      found.push_back(
          {static_cast<int>(outlier.pixel % w), static_cast<int>(outlier.pixel / w), PixelFault::candidate, 0});
    }
  }
  adopt(std::move(found));
}

void BurstBadPixels::addKnown(int x, int y) {
  if (x < 0 || y < 0 || x >= width || y >= height) {
    return;
  }
  fixed.push_back({x, y, PixelFault::known, 0});
  std::stable_sort(fixed.begin(), fixed.end(), before);
  adopt(std::move(state.pixels));
}

// Makes the map and the report of the fixed pixels and these others; of several findings for a pixel the first stays.
void BurstBadPixels::adopt(std::vector<BadPixelFinding> found) {
  std::vector<BadPixelFinding> all = fixed;
  all.insert(all.end(), found.begin(), found.end());
  std::stable_sort(all.begin(), all.end(), before);
  std::fill(bad.begin(), bad.end(), static_cast<unsigned char>(0));
  state.pixels.clear();
  for (const BadPixelFinding& finding : all) {
    unsigned char& mark = bad[static_cast<std::size_t>(finding.y) * static_cast<std::size_t>(width) +
                              static_cast<std::size_t>(finding.x)];
    if (mark == 0) {
      state.pixels.push_back(finding);
      mark = 1;
    }
  }
}

bool BurstBadPixels::update(const FrameStack& frames, const FrameStack& residuals,
                            const std::vector<AffineMotion>& motions) {
  requireFrames(frames);
  requireFrames(residuals);
  requireSameShape(frames, residuals);
  if (frames.width != width || frames.height != height) {
    MOVRA_THROW("the frames have another size than those of the search's start");
  }
  if (motions.size() != static_cast<std::size_t>(frames.count)) {
    MOVRA_THROW("not as many motions as frames");
  }
  if (state.search == BadPixelSearch::tooFewFrames || state.search == BadPixelSearch::eightBitData) {
    return false;
  }
  const std::vector<unsigned char> previous = bad;
  state.medianDistance = medianDistance(motions);
  ++state.rounds;
  if (state.medianDistance < leastDistance) {
    state.search = BadPixelSearch::tooLittleMotion;
    adopt({});
  } else {
    const bool strict = state.medianDistance < strictDistance;
    state.search = strict ? BadPixelSearch::strict : BadPixelSearch::done;
    std::vector<BadPixelFinding> found = Round(frames, residuals, strict ? strictRangeShare : rangeShare).findings();
    adopt(strict ? withoutGroups(found, width, height) : std::move(found));
  }
  return bad != previous && state.rounds < mostRounds;
}

void BurstBadPixels::fill(float* frame) const {
  fillByLocalMedian(frame, width, height, bad.data());
}

bool BurstBadPixels::isEightBitData(const FrameStack& frames) {
  requireFrames(frames);
  return hasSteps(frames, 1) || hasSteps(frames, 255);
}

}  // namespace movra::vision
