#include "vision/superresolution/detail/sensor/EdgeWindows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "vision/superresolution/detail/base/BoxFilter.h"

namespace movra::vision::detail {

namespace {

constexpr int largestWindow = 40;
constexpr std::size_t mostWindows = 24;
constexpr double strong = 0.25;         // of the window's largest squared gradient
constexpr double leastCoherence = 0.9;  // of the gradients' directions, 0 ... 1
constexpr double widestEdge = 2.5;      // deviation of the strong gradients from a line, pixels
constexpr double leastLength = 0.22;    // deviation along the line over the window's size; 0.29 for a whole edge

struct Gradient {
  float x;
  float y;
  double energy() const {
    return static_cast<double>(x) * static_cast<double>(x) + static_cast<double>(y) * static_cast<double>(y);
  }
};

std::vector<Gradient> gradientsOf(const float* image, int width, int height) {
  const auto w = static_cast<std::size_t>(width);
  std::vector<float> smooth(w * static_cast<std::size_t>(height));
  BoxFilter box(width);
  box.apply(image, height, 1, smooth.data());
  box.apply(smooth.data(), height, 1, smooth.data());
  std::vector<Gradient> gradients(smooth.size(), Gradient{0, 0});
  // The border's means are cut, so that they pretend gradients.
  for (std::size_t y = 3; y + 3 < static_cast<std::size_t>(height); ++y) {
    for (std::size_t x = 3; x + 3 < w; ++x) {
      const float* at = &smooth[y * w + x];
      gradients[y * w + x] = {0.5f * (at[1] - at[-1]), 0.5f * (at[w] - *(at - w))};
    }
  }
  return gradients;
}

/// Sums over the strong gradients of a window.
class WindowMoments {
 public:
  WindowMoments(const std::vector<Gradient>& gradients_, int width_, int left_, int top_, int size_)
      : gradients(gradients_), width(width_), window{left_, top_, size_, 0, 0, 0} {}

  /// Whether a straight edge crosses the window near its middle.
  bool hasEdge() {
    double largest = 0;
    forAll([&](double, double, const Gradient& g) { largest = std::max(largest, g.energy()); });
    if (!(largest > 0) || !std::isfinite(largest)) {
      return false;
    }
    double xx = 0;
    double xy = 0;
    double yy = 0;
    double x1 = 0;
    double y1 = 0;
    const auto forStrong = [&](auto use) {
      forAll([&](double x, double y, const Gradient& g) {
        if (g.energy() > strong * largest) {
          use(x, y, g);
        }
      });
    };
    forStrong([&](double, double, const Gradient& g) {
      const double gx = static_cast<double>(g.x);
      const double gy = static_cast<double>(g.y);
      xx += gx * gx;
      xy += gx * gy;
      yy += gy * gy;
      x1 += gx;
      y1 += gy;
    });
    const double energy = xx + yy;
    const double coherence = std::sqrt((xx - yy) * (xx - yy) + 4 * xy * xy) / energy;
    double angle = 0.5 * std::atan2(2 * xy, xx - yy);
    if (x1 * std::cos(angle) + y1 * std::sin(angle) < 0) {
      angle += 3.14159265358979323846;
    }
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    double across1 = 0;
    double across2 = 0;
    double along1 = 0;
    double along2 = 0;
    forStrong([&](double x, double y, const Gradient& g) {
      const double weight = g.energy() / energy;
      const double across = x * c + y * s;
      const double along = y * c - x * s;
      across1 += weight * across;
      across2 += weight * across * across;
      along1 += weight * along;
      along2 += weight * along * along;
    });
    window.angle = angle;
    window.distance = across1;
    window.energy = energy;
    return coherence > leastCoherence && across2 - across1 * across1 < widestEdge * widestEdge &&
           along2 - along1 * along1 > leastLength * leastLength * window.size * window.size &&
           std::abs(across1) < 0.25 * window.size;
  }

  const EdgeWindow& found() const { return window; }

 private:
  template <class Use>
  void forAll(Use use) const {
    for (int y = window.top; y < window.top + window.size; ++y) {
      for (int x = window.left; x < window.left + window.size; ++x) {
        use(x - window.middleX(), y - window.middleY(),
            gradients[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)]);
      }
    }
  }

  const std::vector<Gradient>& gradients;
  int width;
  EdgeWindow window;
};

bool overlapByHalf(const EdgeWindow& a, const EdgeWindow& b) {
  return 2 * std::abs(a.left - b.left) < a.size && 2 * std::abs(a.top - b.top) < a.size;
}

}  // namespace

std::vector<EdgeWindow> findEdgeWindows(const float* image, int width, int height) {
  const std::vector<Gradient> gradients = gradientsOf(image, width, height);
  const int size = std::min(largestWindow, std::min(width, height));
  const int step = std::max(1, size / 4);
  std::vector<EdgeWindow> all;
  for (int top = 0; top + size <= height; top += step) {
    for (int left = 0; left + size <= width; left += step) {
      WindowMoments moments(gradients, width, left, top, size);
      if (moments.hasEdge()) {
        all.push_back(moments.found());
      }
    }
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const EdgeWindow& a, const EdgeWindow& b) { return a.energy > b.energy; });
  std::vector<EdgeWindow> chosen;
  for (const EdgeWindow& window : all) {
    const bool isNew = std::none_of(chosen.begin(), chosen.end(),
                                    [&](const EdgeWindow& other) { return overlapByHalf(window, other); });
    if (isNew && chosen.size() < mostWindows) {
      chosen.push_back(window);
    }
  }
  return chosen;
}

}  // namespace movra::vision::detail
