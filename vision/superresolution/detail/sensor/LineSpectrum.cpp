#include "vision/superresolution/detail/sensor/LineSpectrum.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace movra::vision::detail {

namespace {

constexpr int block = 32;
constexpr int lowestBin = 13;  // 0.4 cycles per pixel
constexpr int bins = block / 2 - lowestBin + 1;
constexpr double twoPi = 6.28318530717958647692;
constexpr double relativeRounding = 4.8e-7;

/// Cosines and sines of the highest frequencies under a window that falls to 0 at both ends (J. von Hann).
struct Waves {
  Waves() {
    for (int b = 0; b < bins; ++b) {
      for (int i = 0; i < block; ++i) {
        const double window = 0.5 - 0.5 * std::cos(twoPi * (i + 0.5) / block);
        const double phase = twoPi * (lowestBin + b) * i / block;
        cosine[static_cast<std::size_t>(b)][static_cast<std::size_t>(i)] = window * std::cos(phase);
        sine[static_cast<std::size_t>(b)][static_cast<std::size_t>(i)] = window * std::sin(phase);
      }
    }
  }
  std::array<std::array<double, block>, bins> cosine;
  std::array<std::array<double, block>, bins> sine;
};

// Power of one line of a block.
double powerOf(const Waves& waves, const float* values, std::ptrdiff_t step) {
  double power = 0;
  for (std::size_t b = 0; b < bins; ++b) {
    double re = 0;
    double im = 0;
    for (std::size_t i = 0; i < block; ++i) {
      // The window lets the mean leak hardly at all, but a mean of 300 K is large.
      const double value =
          static_cast<double>(values[static_cast<std::ptrdiff_t>(i) * step]) - static_cast<double>(values[0]);
      re += waves.cosine[b][i] * value;
      im += waves.sine[b][i] * value;
    }
    power += re * re + im * im;
  }
  return power;
}

}  // namespace

double spectrumRatio(const float* image, int width, int height) {
  const Waves waves;
  std::vector<double> ratios;
  for (int top = 0; top + block <= height; top += block) {
    for (int left = 0; left + block <= width; left += block) {
      const float* corner = image + static_cast<std::ptrdiff_t>(top) * width + left;
      double along[2] = {};
      for (int i = 0; i < block; ++i) {
        along[0] += powerOf(waves, corner + static_cast<std::ptrdiff_t>(i) * width, 1);
        along[1] += powerOf(waves, corner + i, width);
      }
      const double rounding = relativeRounding * static_cast<double>(corner[0]);
      const double least = rounding * rounding * block * block * bins;
      if (std::max(along[0], along[1]) > 4 * least && std::isfinite(along[0]) && std::isfinite(along[1])) {
        ratios.push_back(std::log10(std::max(along[0], least + 1e-300) / std::max(along[1], least + 1e-300)));
      }
    }
  }
  if (ratios.empty()) {
    return 0;
  }
  std::sort(ratios.begin(), ratios.end());
  return ratios[ratios.size() / 2];
}

}  // namespace movra::vision::detail
