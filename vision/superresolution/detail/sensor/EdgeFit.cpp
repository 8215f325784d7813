#include "vision/superresolution/detail/sensor/EdgeFit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/LinearSystem.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr std::size_t unknowns = 5;
constexpr double edgeReach = 6;  // pixels from the edge that take part
constexpr int iterations = 60;

// angle, distance, low, contrast, blur
using Parameters = std::array<double, unknowns>;

struct Pixel {
  double x;
  double y;
  double value;
};

// The step after a Gaussian, integrated twice, with its first derivative; s is the Gaussian's deviation.
double normal(double t) {
  return 0.5 * std::erfc(-t * 0.70710678118654752440);
}
double density(double t) {
  return 0.39894228040143267794 * std::exp(-0.5 * t * t);
}
double integral(double t, double s) {
  return t * normal(t / s) + s * density(t / s);
}
double doubleIntegral(double t, double s) {
  return 0.5 * ((t * t + s * s) * normal(t / s) + t * s * density(t / s));
}

/// The edge's profile E and its derivatives by distance and blur. Seen along the edge, a square pixel is a trapezoid,
/// the convolution of two boxes of lengths |cos| and |sin|, so the mean over it is a second difference of the double
/// integral.
class Profile {
 public:
  Profile(double angle, double s_)
      : s(s_), a(std::max(std::abs(std::cos(angle)), 1e-3)), b(std::max(std::abs(std::sin(angle)), 1e-3)) {}

  double value(double t) const {
    return secondDifference(t, [this](double u) { return doubleIntegral(u, s); });
  }
  double byDistance(double t) const {
    return secondDifference(t, [this](double u) { return integral(u, s); });
  }
  // The heat equation: half the second derivative by t is the derivative by s^2.
  double byBlur(double t) const {
    return secondDifference(t, [this](double u) { return s * normal(u / s); });
  }

 private:
  template <class Function>
  double secondDifference(double t, Function f) const {
    const double outer = 0.5 * (a + b);
    const double inner = 0.5 * (a - b);
    return (f(t + outer) - f(t + inner) - f(t - inner) + f(t - outer)) / (a * b);
  }

  double s;
  double a;
  double b;
};

double distanceOf(const Pixel& pixel, const Parameters& p) {
  return pixel.x * std::cos(p[0]) + pixel.y * std::sin(p[0]) - p[1];
}

double modelAt(const Pixel& pixel, const Parameters& p) {
  return p[2] + p[3] * Profile(p[0], p[4]).value(distanceOf(pixel, p));
}

std::array<double, unknowns> gradientAt(const Pixel& pixel, const Parameters& p) {
  constexpr double h = 1e-5;
  Parameters more = p;
  Parameters less = p;
  more[0] += h;
  less[0] -= h;
  const Profile profile(p[0], p[4]);
  const double t = distanceOf(pixel, p);
  return {(modelAt(pixel, more) - modelAt(pixel, less)) / (2 * h), -p[3] * profile.byDistance(t), 1, profile.value(t),
          p[3] * profile.byBlur(t)};
}

class Fit {
 public:
  Fit(std::vector<Pixel> pixels_, const Parameters& start) : pixels(std::move(pixels_)), p(start) {
    std::vector<float> sizes;
    for (const Pixel& pixel : pixels) {
      sizes.push_back(static_cast<float>(std::abs(pixel.value - modelAt(pixel, p))));
    }
    scale = std::max(1e-9, 3 * deviationPerMad * static_cast<double>(medianOf(sizes)));
    loss = lossAt(p);
  }

  bool run() {
    double damping = 1e-3;
    for (int i = 0; i < iterations; ++i) {
      const double before = loss;
      if (!step(damping)) {
        return std::isfinite(loss);  // no direction leads down any more
      }
      if (before - loss <= 1e-10 * before) {
        return true;
      }
    }
    return false;
  }

  const Parameters& parameters() const { return p; }

  double rms() const {
    double sum = 0;
    for (const Pixel& pixel : pixels) {
      const double r = pixel.value - modelAt(pixel, p);
      sum += r * r;
    }
    return std::sqrt(sum / static_cast<double>(pixels.size()));
  }

  /// Standard error of the blur: the noise times the root of the inverse's last diagonal element.
  double blurError() const {
    NormalEquations<unknowns> equations;
    for (const Pixel& pixel : pixels) {
      equations.add(gradientAt(pixel, p), 0, 1);
    }
    equations.addToRight(unknowns - 1, 1);
    Parameters column{};
    return equations.solve(column) ? rms() * std::sqrt(std::max(0.0, column[unknowns - 1])) : HUGE_VAL;
  }

 private:
  // Soft L1: 2 (sqrt(1 + (r / scale)^2) - 1).
  double lossAt(const Parameters& q) const {
    double sum = 0;
    for (const Pixel& pixel : pixels) {
      const double r = (pixel.value - modelAt(pixel, q)) / scale;
      sum += 2 * (std::sqrt(1 + r * r) - 1);
    }
    return sum;
  }

  bool step(double& damping) {
    NormalEquations<unknowns> equations;
    for (const Pixel& pixel : pixels) {
      const double r = pixel.value - modelAt(pixel, p);
      equations.add(gradientAt(pixel, p), r, 1 / std::sqrt(1 + r * r / (scale * scale)));
    }
    for (int attempt = 0; attempt < 12; ++attempt) {
      NormalEquations<unknowns> damped = equations;
      for (std::size_t i = 0; i < unknowns; ++i) {
        damped.diagonal(i) *= 1 + damping;
      }
      Parameters change{};
      if (damped.solve(change)) {
        Parameters next = p;
        for (std::size_t i = 0; i < unknowns; ++i) {
          next[i] += change[i];
        }
        next[4] = std::max(std::abs(next[4]), 0.02);
        const double there = lossAt(next);
        if (there < loss) {
          p = next;
          loss = there;
          damping *= 0.3;
          return true;
        }
      }
      damping *= 4;
    }
    return false;
  }

  std::vector<Pixel> pixels;
  Parameters p;
  double scale = 1;
  double loss = 0;
};

std::vector<Pixel> pixelsNear(const float* frame, int width, const EdgeWindow& window, const Parameters& p) {
  std::vector<Pixel> pixels;
  for (int y = window.top; y < window.top + window.size; ++y) {
    for (int x = window.left; x < window.left + window.size; ++x) {
      const float& value =
          frame[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
      const Pixel pixel{x - window.middleX(), y - window.middleY(), static_cast<double>(value)};
      if (isMeasured(value) && std::abs(distanceOf(pixel, p)) < edgeReach) {
        pixels.push_back(pixel);
      }
    }
  }
  return pixels;
}

Parameters startOf(const std::vector<Pixel>& pixels, const EdgeWindow& window) {
  std::vector<float> values;
  for (const Pixel& pixel : pixels) {
    values.push_back(static_cast<float>(pixel.value));
  }
  const std::size_t few = values.size() / 20;
  const double low = static_cast<double>(orderStatistic(values, few));
  const double high = static_cast<double>(orderStatistic(values, values.size() - 1 - few));
  return {window.angle, window.distance, low, high - low, 0.35};
}

}  // namespace

EdgeFit fitEdge(const float* frame, int width, const EdgeWindow& window) {
  EdgeFit result;
  Parameters p{window.angle, window.distance, 0, 0, 0};
  for (int pass = 0; pass < 2; ++pass) {
    std::vector<Pixel> pixels = pixelsNear(frame, width, window, p);
    if (pixels.size() < 20 * unknowns) {
      return {};
    }
    Fit fit(pixels, pass == 0 ? startOf(pixels, window) : p);
    result.converged = fit.run();
    p = fit.parameters();
    if (!result.converged) {
      return {};
    }
    if (pass == 1) {
      result.rms = fit.rms();
      result.blurError = fit.blurError();
      for (const Pixel& pixel : pixels) {
        result.profile.push_back({distanceOf(pixel, p), pixel.value, modelAt(pixel, p)});
      }
    }
  }
  std::sort(result.profile.begin(), result.profile.end(),
            [](const EdgeProfilePoint& a, const EdgeProfilePoint& b) { return a.distance < b.distance; });
  result.angle = p[0];
  result.low = p[2];
  result.contrast = p[3];
  result.blur = p[4];
  return result;
}

}  // namespace movra::vision::detail
