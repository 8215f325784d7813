#include "vision/superresolution/detail/sensor/Outliers.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/sensor/OrderStatistics.h"
#include "vision/superresolution/detail/sensor/TemporalStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr double candidateLimit = 6;     // times what is typical around the pixel
constexpr double candidateShare = 0.03;  // of all pixels, at most

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

std::vector<Outlier> spatialOutliers(const FrameStack& frames) {
  const std::vector<float> detail = medianDetail(frames);
  const double globally = std::max(deviationOf(detail), roundingOf(frames));
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

}  // namespace movra::vision::detail
