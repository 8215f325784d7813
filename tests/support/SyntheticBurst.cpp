#include "tests/support/SyntheticBurst.h"

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <random>
#include <utility>

#include "vision/superresolution/reference/SuperResolutionConvolution.h"

namespace movra::test {

namespace {

constexpr int factor = 2;
constexpr int taps = 6;
constexpr int margin = (taps - 1) / 2;

// Gaussian of the default width, 0.683 high-resolution pixels, integrated over unit cells.
const float sensorPsf[taps] = {0.0f, 0.07f, 0.43f, 0.43f, 0.07f, 0.0f};

// Close to sin(2 pi t): parabolas that join smoothly.
double wave(double t) {
  const double phase = 2 * (t - std::floor(t)) - 1;  // -1 ... 1
  return -4 * phase * (1 - std::abs(phase));
}

// Twelve bits of a scrambled (column, row, what), as 0 ... 1.
double scrambled(std::int64_t column, std::int64_t row, std::uint32_t what) {
  std::uint32_t h = static_cast<std::uint32_t>(column) * 0x9E3779B1u ^ static_cast<std::uint32_t>(row) * 0x85EBCA77u ^
                    what * 0xC2B2AE3Du;
  h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
  h = (h ^ (h >> 12)) * 0x297A2D39u;
  return (h >> 20) / 4096.0;
}

// One blob in each cell of a lattice, reaching no farther than the neighbouring cells.
double blobs(double x, double y) {
  constexpr double cell = 20;
  const auto column = static_cast<std::int64_t>(std::floor(x / cell));
  const auto row = static_cast<std::int64_t>(std::floor(y / cell));
  double sum = 0;
  for (std::int64_t r = row - 1; r <= row + 1; ++r)
    for (std::int64_t c = column - 1; c <= column + 1; ++c) {
      const double dx = x - cell * (static_cast<double>(c) + scrambled(c, r, 1));
      const double dy = y - cell * (static_cast<double>(r) + scrambled(c, r, 2));
      const double radius = 5 + 12 * scrambled(c, r, 3);
      const double inside = 1 - (dx * dx + dy * dy) / (radius * radius);
      if (inside > 0) {
        sum += (10 * scrambled(c, r, 4) - 4) * inside * inside;
      }
    }
  return sum;
}

// Sum of four uniform numbers, of mean 0 and standard deviation 1.
double almostNormal(std::mt19937& random) {
  double sum = -2;
  for (int i = 0; i < 4; ++i) {
    sum += static_cast<double>(random()) / 4294967296.0;
  }
  return sum * 1.7320508075688772;
}

// The scene moved by `shift` low-resolution pixels, on the padded high-resolution grid.
Image paddedScene(int width, int height, Shift shift) {
  const int columns = factor * width + taps - 1;
  const int rows = factor * height + taps - 1;
  Image scene;
  for (int y = 0; y < rows; ++y)
    for (int x = 0; x < columns; ++x) {
      const double sceneX = x - margin - factor * static_cast<double>(shift.x);
      const double sceneY = y - margin - factor * static_cast<double>(shift.y);
      scene.push_back(static_cast<float>(sceneTemperature(sceneX, sceneY)));
    }
  return scene;
}

Image cropped(const Image& padded, int width, int height) {
  const cv::Mat_<float> whole = cv::Mat_<float>(padded, true).reshape(1, factor * height + taps - 1);
  const cv::Mat_<float> scene = whole(cv::Rect(margin, margin, factor * width, factor * height));
  return {scene.begin(), scene.end()};
}

}  // namespace

double sceneTemperature(double x, double y) {
  const double slow = 3 * wave(x / 97 + y / 211) + 2 * wave(y / 71 - x / 173);
  const double fine = wave(x / 5.3 + y / 9.1) * wave(y / 4.7 - x / 11.3);
  return 300 + slow + blobs(x, y) + fine;
}

SyntheticBurst makeBurst(const BurstRecipe& recipe) {
  const auto [width, height] = std::pair(recipe.width, recipe.height);
  const auto size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  SyntheticBurst burst{width, height, recipe.shifts, {}, {}, cropped(paddedScene(width, height, {}), width, height)};

  vision::SuperResolutionConvolution sensor(factor * width, factor * height, taps, taps, factor);
  Image psf(sensorPsf, sensorPsf + taps);
  std::mt19937 random(recipe.seed);
  for (const Shift shift : recipe.shifts) {
    Image scene = paddedScene(width, height, shift);
    Image frame(size);
    sensor.validCorrToSparse(scene.data(), psf.data(), psf.data(), frame.data());
    for (float& pixel : frame) {
      pixel += static_cast<float>(recipe.noise * almostNormal(random));
    }
    burst.frames.push_back(std::move(frame));
    burst.masks.emplace_back(size, char{1});
  }
  return burst;
}

double distance(const Image& a, const Image& b, int width, int margin) {
  const int height = static_cast<int>(a.size()) / width;
  double sum = 0;
  for (int y = margin; y < height - margin; ++y) {
    for (int x = margin; x < width - margin; ++x) {
      const auto i = static_cast<std::size_t>(y * width + x);
      sum += std::pow(static_cast<double>(a[i]) - static_cast<double>(b[i]), 2);
    }
  }
  return std::sqrt(sum / ((width - 2 * margin) * (height - 2 * margin)));
}

double gainOverBicubic(const Image& image, const SyntheticBurst& burst, std::size_t still) {
  cv::Mat_<float> bicubic;
  cv::resize(cv::Mat_<float>(burst.frames[still], true).reshape(1, burst.height), bicubic, {}, factor, factor,
             cv::INTER_CUBIC);
  const auto error = [&](const Image& of) { return distance(of, burst.truth, factor * burst.width, 8); };
  return 20 * std::log10(error(Image(bicubic.begin(), bicubic.end())) / error(image));
}

Image randomImage(int size, float low, float high, std::uint32_t seed) {
  std::mt19937 random(seed);
  Image image(static_cast<std::size_t>(size));
  for (float& value : image) {
    value = low + (high - low) * (static_cast<float>(random() >> 8) / 16777216.0f);
  }
  return image;
}

}  // namespace movra::test
