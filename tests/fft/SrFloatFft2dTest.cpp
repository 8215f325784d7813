#include "vision/superresolution/SrFloatFft2d.h"

#include <opencv2/imgproc.hpp>

#include "tests/support/Test.h"
#include "tests/support/TransformLengths.h"

using namespace movra::vision;

namespace {

struct HalfSpectrum {
  HalfSpectrum(int width, int height) : floats(2 * static_cast<std::size_t>((width / 2 + 1) * height), 7.0f) {}
  float (*bins())[2] { return reinterpret_cast<float(*)[2]>(floats.data()); }
  std::vector<float> floats;
};

cv::Mat_<float> randomImage(int width, int height) {
  const movra::test::Image values = movra::test::randomImage(width * height, 270, 310, 1);
  return cv::Mat_<float>(values, true).reshape(1, height);
}

/// Blurs through the spectrum, as the registration does.
cv::Mat_<float> filtered(SrFloatFft2d& fft, cv::Mat_<float> image, HalfSpectrum& filter) {
  HalfSpectrum spectrum(image.cols, image.rows);
  fft.forward(image[0], spectrum.bins());
  cv::Mat product(image.rows, image.cols / 2 + 1, CV_32FC2, spectrum.bins());
  cv::mulSpectrums(product, cv::Mat(product.size(), CV_32FC2, filter.bins()), product, 0);
  cv::Mat_<float> result(image.size());
  fft.backward(spectrum.bins(), result[0]);
  return result;
}

cv::Mat inDouble(const cv::Mat& image) {
  cv::Mat result;
  image.convertTo(result, CV_64F);
  return result;
}

/// The separable convolution in double, of the image continued by a border of `type`.
cv::Mat convolved(const cv::Mat& image, const std::vector<float>& half, int type) {
  const int radius = static_cast<int>(half.size()) - 1;
  cv::Mat padded, mirrored;
  const cv::Mat kernel(half);
  cv::flip(kernel.rowRange(1, kernel.rows), mirrored, 0);
  mirrored.push_back(kernel);
  cv::copyMakeBorder(inDouble(image), padded, radius, radius, radius, radius, type);
  cv::sepFilter2D(padded, padded, CV_64F, mirrored, mirrored);
  return padded(cv::Rect(radius, radius, image.cols, image.rows));
}

}  // namespace

TEST(SrFloatFft2d, TransformsImagesOfEverySizeForwardAndBackward) {
  // Whole and partial batches of rows and columns, and every kind of length in both directions.
  std::vector<cv::Size> sizes{{33, 16}, {34, 17}, {35, 31}, {66, 32}, {68, 33}, {7, 100}};
  for (const int n : movra::test::transformLengths()) {
    sizes.insert(sizes.end(), {{n, 1}, {n, 3}, {3, n}, {1, n}});
  }
  for (const cv::Size size : sizes) {
    SCOPED_TRACE(size);
    SrFloatFft2d fft(size.width, size.height);
    cv::Mat_<float> image = randomImage(size.width, size.height);
    image -= 290.0;
    const cv::Mat_<float> original = image.clone();
    HalfSpectrum spectrum(size.width, size.height);
    fft.forward(image[0], spectrum.bins());

    const auto differ = [&](const cv::Mat& actual, const cv::Mat& expected) {
      return cv::norm(inDouble(actual), expected, cv::NORM_RELATIVE | cv::NORM_L2);
    };
    const double bound = 6e-8 * (1.0 + std::log2(size.area()));
    cv::Mat expected;
    cv::dft(inDouble(original), expected, cv::DFT_COMPLEX_OUTPUT);
    const cv::Mat actual(size.height, size.width / 2 + 1, CV_32FC2, spectrum.bins());
    EXPECT_LT(differ(actual, expected.colRange(0, actual.cols)), bound);
    const std::vector<float> before = spectrum.floats;
    cv::Mat_<float> back(size, -1.0f);
    fft.backward(spectrum.bins(), back[0]);
    EXPECT_LT(differ(back, inDouble(original) * size.area()), 2 * bound);
    EXPECT_EQ(spectrum.floats, before);
    EXPECT_EQ(cv::norm(image, original, cv::NORM_INF), 0.0);
  }
}

TEST(SrFloatFft2d, FilterAndRepairAgreeWithDirectConvolution) {
  for (const auto& [width, height, radius, sigma] :
       {std::tuple(40, 30, 5, 1.7320508f), {11, 12, 5, 2.0f}, {18, 3, 1, 4.0f}, {9, 8, 0, 0.0f}}) {
    SCOPED_TRACE(width);
    SrFloatFft2d fft(width, height);
    HalfSpectrum filter(width, height);
    std::vector<float> kernel(static_cast<std::size_t>(radius + 1));
    fft.gaussFft(radius, sigma, filter.bins(), kernel.data());

    float mass = kernel[0];
    const auto cell = [s = double{sigma} * std::sqrt(2.0)](std::size_t c) {
      return std::erf((static_cast<double>(c) + 0.5) / s) - std::erf((static_cast<double>(c) - 0.5) / s);
    };
    for (std::size_t i = 1; i < kernel.size(); ++i) {
      mass += 2.0f * kernel[i];
      EXPECT_NEAR(kernel[i] / kernel[0], cell(i) / cell(0), 3e-3);
    }
    EXPECT_NEAR(mass, 1.0f, 1e-6f);
    for (std::size_t k = 1; k < filter.floats.size(); k += 2) {
      EXPECT_NEAR(filter.floats[k] * static_cast<float>(width * height), 0.0f, 1e-6f);
    }

    const cv::Mat_<float> image = randomImage(width, height);
    const cv::Mat_<float> wrapped = filtered(fft, image, filter);
    cv::Mat_<float> repaired = wrapped.clone();
    fft.repairGaussBlur(image[0], repaired[0], radius, kernel.data());
    const cv::Mat ones = cv::Mat::ones(height, width, CV_32F);
    const cv::Mat inside = convolved(image, kernel, cv::BORDER_CONSTANT) / convolved(ones, kernel, cv::BORDER_CONSTANT);
    EXPECT_LT(cv::norm(inDouble(wrapped), convolved(image, kernel, cv::BORDER_WRAP), cv::NORM_INF), 1e-3);
    EXPECT_LT(cv::norm(inDouble(repaired), inside, cv::NORM_INF), 1e-3);
    const cv::Rect whole(radius, radius, width - 2 * radius, height - 2 * radius);
    EXPECT_EQ(cv::norm(repaired(whole), wrapped(whole), cv::NORM_INF), 0);
  }
}

TEST(SrFloatFft2d, RefusesWhatDoesNotFit) {
  EXPECT_THROW(SrFloatFft2d(0, 4), movra::Exception);
  SrFloatFft2d fft(20, 10);
  HalfSpectrum filter(20, 10);
  std::vector<float> kernel(12, 0.5f);
  cv::Mat_<float> image = randomImage(20, 10), blurred = image.clone();
  for (const int radius : {-1, 5}) {
    EXPECT_THROW(fft.gaussFft(radius, 1.0f, filter.bins(), kernel.data()), movra::Exception) << radius;
  }
  EXPECT_THROW(fft.repairGaussBlur(image[0], blurred[0], 5, kernel.data()), movra::Exception);
  EXPECT_EQ(cv::norm(image, blurred, cv::NORM_INF), 0.0);
}
