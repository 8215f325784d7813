#include "vision/superresolution/detail/localmotion/FrameNoise.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "vision/superresolution/detail/localmotion/PaddedImage.h"
#include "vision/superresolution/detail/localmotion/RobustStatistics.h"

namespace movra::vision::detail {

double estimateNoise(const float* frame, const PaddedImage& blurred) {
  constexpr double fromMean = 1.2533;  // standard deviation per mean distance, normal distribution
  constexpr int step = 2;
  const int width = blurred.width(), height = blurred.height();
  std::vector<float> gradients, differences;
  for (int y = 1; y < height - 1; y += step) {
    const float* const row = frame + static_cast<std::ptrdiff_t>(y) * width;
    const float* const above = row - width;
    const float* const below = row + width;
    for (int x = 1; x < width - 1; x += step) {
      const float gx = blurred.row(y)[x + 1] - blurred.row(y)[x - 1];
      const float gy = blurred.row(y + 1)[x] - blurred.row(y - 1)[x];
      gradients.push_back(gx * gx + gy * gy);
      const float second = above[x - 1] - 2 * above[x] + above[x + 1] - 2 * (row[x - 1] - 2 * row[x] + row[x + 1]) +
                           below[x - 1] - 2 * below[x] + below[x + 1];
      differences.push_back(std::abs(second) / 6);
    }
  }
  std::vector<float> sorted(gradients);
  const float flattest = orderStatistic(sorted, sorted.size() * 3 / 10);
  std::vector<double> flat;
  for (std::size_t i = 0; i < differences.size(); ++i) {
    if (gradients[i] <= flattest) {
      flat.push_back(static_cast<double>(differences[i]));
    }
  }
  if (flat.empty()) {
    return 0;
  }
  const auto cutMean = [&](double limit) {
    double sum = 0;
    for (const double value : flat) {
      sum += std::min(value, limit);
    }
    return sum / static_cast<double>(flat.size());
  };
  double noise = fromMean * cutMean(1e30);
  for (int i = 0; i < 4; ++i) {
    noise = 1.006 * fromMean * cutMean(2.5 * noise);
  }
  return noise;
}

}  // namespace movra::vision::detail
