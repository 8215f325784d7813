#include "vision/superresolution/SrFloatFft2d.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include "movra/Exception.h"
#include "vision/superresolution/detail/InstructionSet.h"

using namespace movra::vision;

namespace {

struct HalfSpectrum {
  HalfSpectrum(int width, int height)
      : floats(2 * static_cast<std::size_t>((width / 2 + 1) * height), 7.0f) {}
  float (*bins())[2] { return reinterpret_cast<float(*)[2]>(floats.data()); }
  std::complex<double> operator[](int bin) const {
    const auto at = static_cast<std::size_t>(2 * bin);
    return {floats[at], floats[at + 1]};
  }
  std::vector<float> floats;
};

cv::Mat_<float> randomImage(int width, int height) {
  std::mt19937 generator(static_cast<unsigned>(width * 1000 + height));
  std::uniform_real_distribution<float> uniform(270.0f, 310.0f);
  cv::Mat_<float> image(height, width);
  for (float& value : image) value = uniform(generator);
  return image;
}

/// The definition in double precision, rows and then columns.
std::vector<std::complex<double>> transform(const cv::Mat_<float>& image) {
  const int bins = image.cols / 2 + 1;
  std::vector<std::complex<double>> rows(static_cast<std::size_t>(bins * image.rows));
  std::vector<std::complex<double>> result(rows.size());
  const auto root = [](int t, int n) { return std::polar(1.0, -2.0 * CV_PI * (t % n) / n); };
  for (int y = 0; y < image.rows; ++y) {
    for (int k = 0; k < bins; ++k) {
      for (int x = 0; x < image.cols; ++x) {
        rows[static_cast<std::size_t>(y * bins + k)] += double{image(y, x)} * root(k * x, image.cols);
      }
    }
  }
  for (int l = 0; l < image.rows; ++l) {
    for (int k = 0; k < bins; ++k) {
      for (int y = 0; y < image.rows; ++y) {
        result[static_cast<std::size_t>(l * bins + k)] +=
            rows[static_cast<std::size_t>(y * bins + k)] * root(l * y, image.rows);
      }
    }
  }
  return result;
}

/// Blurs through the spectrum, as the registration does.
cv::Mat_<float> filtered(SrFloatFft2d& fft, cv::Mat_<float> image, HalfSpectrum& filter) {
  HalfSpectrum spectrum(image.cols, image.rows);
  fft.forward(image[0], spectrum.bins());
  for (std::size_t k = 0; k < spectrum.floats.size(); k += 2) {
    const std::complex<float> bin(spectrum.floats[k], spectrum.floats[k + 1]);
    const std::complex<float> product = bin * std::complex<float>(filter.floats[k], filter.floats[k + 1]);
    spectrum.floats[k] = product.real();
    spectrum.floats[k + 1] = product.imag();
  }
  cv::Mat_<float> result(image.size());
  fft.backward(spectrum.bins(), result[0]);
  return result;
}

/// One pixel of the separable convolution in double: wrapped around, or cut off and divided by the mass
/// inside.
double convolved(const cv::Mat_<float>& image, int y, int x, const std::vector<float>& kernel, bool wrap) {
  const int radius = static_cast<int>(kernel.size()) - 1;
  double sum = 0.0;
  double mass = 0.0;
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      const int row = wrap ? (y + dy + image.rows) % image.rows : y + dy;
      const int column = wrap ? (x + dx + image.cols) % image.cols : x + dx;
      if (row < 0 || row >= image.rows || column < 0 || column >= image.cols) continue;
      const double weight = double{kernel[static_cast<std::size_t>(std::abs(dy))]} *
                            double{kernel[static_cast<std::size_t>(std::abs(dx))]};
      sum += weight * double{image(row, column)};
      mass += weight;
    }
  }
  return sum / mass;
}

}  // namespace

TEST(SrFloatFft2d, TransformsImagesOfEverySizeForwardAndBackward) {
  // Single pixels, lines, even and odd widths, whole and partial batches of rows and columns.
  const int sizes[][2] = {{1, 1},   {1, 6},   {6, 1},   {2, 2},   {3, 4},   {4, 5},   {5, 3},   {33, 16},
                          {34, 17}, {35, 31}, {66, 32}, {68, 33}, {31, 49}, {80, 60}, {7, 100}, {100, 7}};
  for (const auto& [width, height] : sizes) {
    SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
    SrFloatFft2d fft(width, height);
    cv::Mat_<float> image = randomImage(width, height);
    image -= 290.0;
    const cv::Mat_<float> original = image.clone();
    HalfSpectrum spectrum(width, height);
    fft.forward(image[0], spectrum.bins());

    const auto expected = transform(original);
    const double unit = std::sqrt(static_cast<double>(image.total())) * 20.0;
    for (int bin = 0; bin < static_cast<int>(expected.size()); ++bin) {
      ASSERT_LT(std::abs(spectrum[bin] - expected[static_cast<std::size_t>(bin)]), 1e-6 * unit) << bin;
    }
    const std::vector<float> before = spectrum.floats;
    cv::Mat_<float> back(height, width, -1.0f);
    fft.backward(spectrum.bins(), back[0]);
    EXPECT_LT(cv::norm(back / static_cast<double>(image.total()), original, cv::NORM_INF), 3e-5);
    EXPECT_EQ(spectrum.floats, before);
    EXPECT_EQ(cv::norm(image, original, cv::NORM_INF), 0.0);
  }
}

TEST(SrFloatFft2d, AConstantImageHasOnlyItsSum) {
  SrFloatFft2d fft(60, 42);
  cv::Mat_<float> image(42, 60, 300.0f);
  HalfSpectrum spectrum(60, 42);
  fft.forward(image[0], spectrum.bins());
  EXPECT_NEAR(spectrum[0].real(), 300.0 * 60 * 42, 1.0);
  spectrum.floats[0] = 0.0f;
  for (const float value : spectrum.floats) EXPECT_NEAR(value, 0.0f, 0.1f);
}

TEST(SrFloatFft2d, FilterAndRepairAgreeWithDirectConvolution) {
  const struct {
    int width, height, radius;
    float sigma;
  } cases[] = {
      {40, 30, 5, 1.7320508f}, {11, 12, 5, 2.0f}, {23, 15, 3, 1.2f}, {18, 3, 1, 4.0f}, {9, 8, 0, 0.0f}};
  for (const auto& [width, height, radius, sigma] : cases) {
    SCOPED_TRACE(width);
    SrFloatFft2d fft(width, height);
    HalfSpectrum filter(width, height);
    std::vector<float> kernel(static_cast<std::size_t>(radius + 1));
    fft.gaussFft(radius, sigma, filter.bins(), kernel.data());

    float mass = kernel[0];
    for (int i = 1; i <= radius; ++i) {
      const auto at = static_cast<std::size_t>(i);
      mass += 2.0f * kernel[at];
      const auto cell = [s = double{sigma} * std::sqrt(2.0)](int c) {
        return std::erf((c + 0.5) / s) - std::erf((c - 0.5) / s);
      };
      EXPECT_NEAR(kernel[at] / kernel[0], cell(i) / cell(0), 3e-3);
    }
    EXPECT_NEAR(mass, 1.0f, 1e-6f);
    for (std::size_t k = 1; k < filter.floats.size(); k += 2) {
      EXPECT_NEAR(filter.floats[k] * static_cast<float>(width * height), 0.0f, 1e-6f);
    }

    const cv::Mat_<float> image = randomImage(width, height);
    const cv::Mat_<float> wrapped = filtered(fft, image, filter);
    cv::Mat_<float> repaired = wrapped.clone();
    fft.repairGaussBlur(image[0], repaired[0], radius, kernel.data());
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        EXPECT_NEAR(wrapped(y, x), convolved(image, y, x, kernel, true), 1e-3) << y << ' ' << x;
        EXPECT_NEAR(repaired(y, x), convolved(image, y, x, kernel, false), 1e-3) << y << ' ' << x;
        if (std::min({x, width - 1 - x, y, height - 1 - y}) >= radius) {
          EXPECT_EQ(repaired(y, x), wrapped(y, x)) << y << ' ' << x;
        }
      }
    }
  }
}

TEST(SrFloatFft2d, EveryInstructionSetGivesTheSameBits) {
  const detail::InstructionSet active = detail::activeInstructionSet();
  for (const auto& [width, height] : {cv::Point(160, 120), cv::Point(77, 45)}) {
    std::vector<float> expected;
    for (const detail::InstructionSet set : detail::availableInstructionSets()) {
      detail::selectInstructionSet(set);
      SrFloatFft2d fft(width, height);
      HalfSpectrum filter(width, height);
      float kernel[6];
      fft.gaussFft(5, 1.7320508f, filter.bins(), kernel);
      cv::Mat_<float> image = randomImage(width, height);
      cv::Mat_<float> blurred = filtered(fft, image, filter);
      fft.repairGaussBlur(image[0], blurred[0], 5, kernel);
      HalfSpectrum spectrum(width, height);
      fft.forward(image[0], spectrum.bins());

      std::vector<float> all = spectrum.floats;
      all.insert(all.end(), filter.floats.begin(), filter.floats.end());
      all.insert(all.end(), blurred.begin(), blurred.end());
      if (expected.empty()) expected = all;
      EXPECT_EQ(std::memcmp(all.data(), expected.data(), all.size() * sizeof(float)), 0) << detail::name(set);
    }
  }
  detail::selectInstructionSet(active);
}

TEST(SrFloatFft2d, RefusesWhatDoesNotFitAndChangesNothing) {
  EXPECT_THROW(SrFloatFft2d(0, 4), movra::Exception);
  EXPECT_THROW(SrFloatFft2d(4, -1), movra::Exception);

  SrFloatFft2d fft(20, 10);
  HalfSpectrum filter(20, 10);
  const std::vector<float> untouched = filter.floats;
  std::vector<float> kernel(12, 0.5f);
  cv::Mat_<float> image = randomImage(20, 10);
  cv::Mat_<float> blurred = image.clone();
  for (const int radius : {-1, 5, 2000000000}) {
    EXPECT_THROW(fft.gaussFft(radius, 1.0f, filter.bins(), kernel.data()), movra::Exception) << radius;
  }
  EXPECT_THROW(fft.repairGaussBlur(image[0], blurred[0], 5, kernel.data()), movra::Exception);
  fft.repairGaussBlur(image[0], blurred[0], 0, kernel.data());
  fft.repairGaussBlur(image[0], blurred[0], -3, kernel.data());
  EXPECT_EQ(filter.floats, untouched);
  EXPECT_EQ(kernel, std::vector<float>(12, 0.5f));
  EXPECT_EQ(cv::norm(image, blurred, cv::NORM_INF), 0.0);
}
