#include "tests/localmotion/MovingBurst.h"

#include <cmath>

namespace movra::test {

SyntheticBurst makeMovingBurst(int width, int height, const std::vector<Motion>& back, const Extra& extra) {
  // Five points of a Gauss-Hermite rule in each direction.
  constexpr double places[5] = {-2.85697, -1.35563, 0, 1.35563, 2.85697};
  constexpr double weights[5] = {0.0112574, 0.2220759, 0.5333333, 0.2220759, 0.0112574};
  constexpr double sigma = 0.683 / 2;  // low-resolution pixels
  SyntheticBurst burst{width, height, {}, {}, {}, {}};
  const auto sceneAt = [&](int k, cv::Point2d p) {
    return sceneTemperature(2 * p.x + 0.5, 2 * p.y + 0.5) + (extra ? extra(k, p) : 0.0);
  };
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  for (std::size_t k = 0; k < back.size(); ++k) {
    Image frame = randomImage(static_cast<int>(pixels), -0.035f, 0.035f, static_cast<std::uint32_t>(k + 1));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        double sum = 0;
        for (int i = 0; i < 5; ++i) {
          for (int j = 0; j < 5; ++j) {
            const cv::Point2d at = back[k]({x + sigma * places[j], y + sigma * places[i]});
            sum += weights[i] * weights[j] * sceneAt(static_cast<int>(k), at);
          }
        }
        frame[static_cast<std::size_t>(y * width + x)] += static_cast<float>(sum);
      }
    }
    burst.frames.push_back(frame);
  }
  for (int y = 0; y < 2 * height; ++y) {
    for (int x = 0; x < 2 * width; ++x) {
      burst.truth.push_back(static_cast<float>(sceneAt(0, {(x - 0.5) / 2, (y - 0.5) / 2})));
    }
  }
  return burst;
}

Motion inverseOf(double radians, cv::Point2d shift, int width, int height) {
  const cv::Point2d middle(0.5 * (width - 1), 0.5 * (height - 1));
  const double c = std::cos(radians), s = std::sin(radians);
  return [=](cv::Point2d p) {
    const cv::Point2d d = p - middle - shift;
    return middle + cv::Point2d(c * d.x + s * d.y, -s * d.x + c * d.y);
  };
}

}  // namespace movra::test
