#include "tools/movra-sr/simulation/Optics.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace movra::tool {

namespace {

constexpr int steps = 1024;

/// Integral of the distribution function of a Gaussian.
double integratedDistribution(double x, double sigma) {
  const double u = x / sigma;
  return x * 0.5 * std::erfc(-u / std::sqrt(2.)) + sigma * std::exp(-0.5 * u * u) / std::sqrt(2 * CV_PI);
}

/// Share of [cell, cell + 1] in what a low-resolution pixel with its centre at `centre` sees.
double share(int cell, double centre, double sigma) {
  const auto seenUpTo = [&](double x) {
    return integratedDistribution(x - centre + 1, sigma) - integratedDistribution(x - centre - 1, sigma);
  };
  return 0.5 * (seenUpTo(cell + 1) - seenUpTo(cell));
}

}  // namespace

Optics::Optics(double totalBlur) {
  const double sigma = std::sqrt(std::max(totalBlur * totalBlur - blurOfPixelArea * blurOfPixelArea, 1e-4));
  reach = static_cast<int>(std::ceil(1 + 5 * sigma));
  table.create(steps + 1, 2 * reach + 1);
  for (int step = 0; step < table.rows; ++step) {
    for (int cell = 0; cell < table.cols; ++cell) {
      table(step, cell) = share(cell - reach, static_cast<double>(step) / steps, sigma);
    }
    cv::Mat row = table.row(step);
    row /= cv::sum(row)[0];
  }
}

void Optics::weightsAt(double place, double* weights) const {
  const int step = std::min(static_cast<int>(place * steps), steps - 1);
  const double rest = place * steps - step;
  for (int cell = 0; cell < table.cols; ++cell) {
    weights[cell] = (1 - rest) * table(step, cell) + rest * table(step + 1, cell);
  }
}

cv::Mat_<float> Optics::look(const cv::Mat_<float>& scene, int margin, cv::Size size, const FrameMotion& motion) const {
  cv::Mat_<float> frame(size);
  const std::size_t count = static_cast<std::size_t>(table.cols);
  std::vector<double> weightsX(count);
  std::vector<double> weightsY(count);
  std::vector<int> columns(count);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      // Low-resolution pixel 0 covers the high-resolution pixels 0 and 1: its centre lies at 1.
      const cv::Point2d seen = motion.seenBy(cv::Point2d(x, y), size);
      const double centreX = margin + 1 + 2 * seen.x;
      const double centreY = margin + 1 + 2 * seen.y;
      const int cellX = static_cast<int>(std::floor(centreX));
      const int cellY = static_cast<int>(std::floor(centreY));
      weightsAt(centreX - cellX, weightsX.data());
      weightsAt(centreY - cellY, weightsY.data());
      for (int i = 0; i < table.cols; ++i) {
        columns[static_cast<std::size_t>(i)] =
            cv::borderInterpolate(cellX + i - reach, scene.cols, cv::BORDER_REFLECT_101);
      }
      double sum = 0;
      for (int j = 0; j < table.cols; ++j) {
        const float* const row = scene[cv::borderInterpolate(cellY + j - reach, scene.rows, cv::BORDER_REFLECT_101)];
        double sumOfRow = 0;
        for (std::size_t i = 0; i < count; ++i) {
          sumOfRow += weightsX[i] * static_cast<double>(row[columns[i]]);
        }
        sum += weightsY[static_cast<std::size_t>(j)] * sumOfRow;
      }
      frame(y, x) = static_cast<float>(sum);
    }
  }
  return frame;
}

}  // namespace movra::tool
