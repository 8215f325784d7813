#include "vision/superresolution/detail/sensor/FaultTests.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"
#include "vision/superresolution/detail/sensor/Outliers.h"
#include "vision/superresolution/detail/sensor/TemporalStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr double stuckLimit = 8;     // times what is typical, for the median residual
constexpr double flickerLimit = 12;  // for the second largest
constexpr double onceLimit = 20;     // for the largest alone
constexpr int borderRows = 2;        // where predictions are weak
constexpr double weakFactor = 2;
constexpr double weakRangeFactor = 4;
constexpr double rangeShare = 0.1;        // of the prediction's range around the pixel
constexpr double onceRangeFactor = 3;     // times that for the worst frame alone
constexpr double strictRangeShare = 0.6;  // when frames lie less than a pixel apart
constexpr int largestGroup = 2;           // when frames lie less than a pixel apart

/// The frames and residuals of a round, and the tests of one pixel in them.
class Round {
 public:
  Round(const FrameStack& frames_, const FrameStack& residuals_, double rangeFactor_)
      : frames(frames_), residuals(residuals_), rangeFactor(rangeFactor_) {}

  /// By kind; a pixel may be found several times, the first time as what it is.
  std::vector<BadPixelFinding> findings() {
    const TemporalStatistics statistics = temporalStatisticsOf(residuals);
    const double rounding = roundingOf(frames);
    // Where there is no prediction, there is no median.
    std::vector<float> medians;
    std::copy_if(statistics.median.begin(), statistics.median.end(), std::back_inserter(medians),
                 [](float median) { return median != 0; });
    const double ofMedians = std::max(deviationOf(std::move(medians)), rounding);
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

// Keeps the findings in groups of at most two touching pixels. Where frames lie less than a pixel apart,
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

}  // namespace

std::vector<BadPixelFinding> findFaults(const FrameStack& frames, const FrameStack& residuals, bool strict) {
  std::vector<BadPixelFinding> found = Round(frames, residuals, strict ? strictRangeShare : rangeShare).findings();
  return strict ? withoutGroups(found, frames.width, frames.height) : found;
}

}  // namespace movra::vision::detail
