#include "vision/superresolution/reference/SuperResolutionConvolution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "tests/support/SyntheticBurst.h"

using movra::test::Image;
using movra::vision::SuperResolutionConvolution;

namespace {

/// Operators with all arrays of their exact sizes, so that the address sanitizer sees every stray access. The
/// data are small integers, which float sums represent exactly.
struct Case {
  int hrWidth, hrHeight, psfWidth, psfHeight;
  float factor;
  int lw = static_cast<int>(static_cast<float>(hrWidth) / factor);
  int lh = static_cast<int>(static_cast<float>(hrHeight) / factor);
  int paddedWidth = std::max(hrWidth + psfWidth - 1, 0);
  int paddedHeight = std::max(hrHeight + psfHeight - 1, 0);
  std::mt19937 random{static_cast<unsigned>(hrWidth * 131 + hrHeight * 17 + psfWidth * 5 + psfHeight)};
  Image image = integers(lw * lh), hr = integers(paddedWidth * paddedHeight);
  Image psfX = integers(psfWidth), psfY = integers(psfHeight);
  std::vector<char> mask = std::vector<char>(image.size(), 1);
  SuperResolutionConvolution operators{hrWidth, hrHeight, psfWidth, psfHeight, factor};

  Image integers(int count) {
    Image values(static_cast<std::size_t>(count));
    std::uniform_int_distribution<int> value(-9, 9);
    for (float& v : values) v = static_cast<float>(value(random));
    return values;
  }
  Image transposed() {
    Image out(hr.size(), 1e30f);
    operators.fullConvFromSparse(image.data(), psfX.data(), psfY.data(), mask.data(), out.data());
    return out;
  }
  Image imaged() {
    Image out(image.size(), 1e30f);
    operators.validCorrToSparse(hr.data(), psfX.data(), psfY.data(), out.data());
    return out;
  }
  /// The definition: rows and columns of the rectangle follow the factor.
  Image imagedDirectly() const {
    Image out(image.size());
    const int stride = static_cast<int>(factor);
    for (int r = 0; r < lh; ++r)
      for (int x = 0; x < lw; ++x)
        for (int ky = 0; ky < psfHeight; ++ky)
          for (int kx = 0; kx < psfWidth; ++kx)
            out[at(r, x, lw)] += psfY[at(0, ky, 0)] * psfX[at(0, kx, 0)] *
                                 hr[at(stride * r + ky, stride * x + kx, paddedWidth)];
    return out;
  }
  static std::size_t at(int row, int column, int width) {
    return static_cast<std::size_t>(row * width + column);
  }
  std::string name() const {
    return std::to_string(hrWidth) + "x" + std::to_string(hrHeight) + " psf " + std::to_string(psfWidth) +
           "x" + std::to_string(psfHeight) + " factor " + std::to_string(factor);
  }
};

double innerProduct(const Image& a, const Image& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += double{a[i]} * double{b[i]};
  return sum;
}

}  // namespace

TEST(SuperResolutionConvolution, ImagingFollowsItsDefinitionAndTheTransposeIsAdjoint) {
  for (const float factor : {1.0f, 2.0f, 3.0f, 4.0f}) {
    const int taps = static_cast<int>(3 * factor);
    for (const int hrWidth : {1, 4, 7, 12, 24, 37})
      for (const int hrHeight : {3, 8, 13})
        for (const int psfHeight : {1, taps}) {
          Case c{hrWidth, hrHeight, taps, psfHeight, factor};
          const Image imaged = c.imaged();
          EXPECT_EQ(imaged, c.imagedDirectly()) << c.name();
          EXPECT_EQ(innerProduct(imaged, c.image), innerProduct(c.hr, c.transposed())) << c.name();
        }
  }
}

TEST(SuperResolutionConvolution, MaskBytesAreSignedWeights) {
  Case c{8, 6, 6, 6, 2.0f};
  const char weights[] = {0, 1, 2, static_cast<char>(-1), static_cast<char>(-128)};
  Case weighted{8, 6, 6, 6, 2.0f};
  for (std::size_t i = 0; i < c.mask.size(); ++i) {
    c.mask[i] = weights[i % 5];
    weighted.image[i] *= Image{0, 1, 2, -1, -128}[i % 5];
  }
  EXPECT_EQ(c.transposed(), weighted.transposed());
}

TEST(SuperResolutionConvolution, AwkwardSizesAndFactorsStayInsideTheArrays) {
  for (const float factor : {1.3f, 1.99f, 2.5f, 3.7f, 1e30f})
    for (const int hrWidth : {0, 1, 5, 11})
      for (const int hrHeight : {0, 1, 4, 9})
        for (const int psf : {0, 1, 2, 7}) {
          Case c{hrWidth, hrHeight, psf, 7 - psf, factor};
          EXPECT_EQ(innerProduct(c.imaged(), c.image), innerProduct(c.hr, c.transposed())) << c.name();
        }
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const float factor : {nan, 0.0f, -2.0f, 1e-30f}) {
    SuperResolutionConvolution operators(4, 4, 6, 6, factor);
    Image padded(81, 1.0f), psf(6, 1.0f);
    operators.validCorrToSparse(padded.data(), psf.data(), psf.data(), nullptr);
    operators.fullConvFromSparse(nullptr, psf.data(), psf.data(), nullptr, padded.data());
    EXPECT_EQ(padded, Image(81, 0.0f)) << factor;
  }
}

TEST(SuperResolutionConvolution, ImpossibleSizesThrow) {
  const int huge = std::numeric_limits<int>::max();
  EXPECT_THROW(SuperResolutionConvolution(-1, 4, 6, 6, 2.0f), std::bad_array_new_length);
  EXPECT_THROW(SuperResolutionConvolution(4, 4, 6, -6, 2.0f), std::bad_array_new_length);
  EXPECT_THROW(SuperResolutionConvolution(huge, huge, 1, 1, 2.0f), std::bad_array_new_length);
}

TEST(SuperResolutionConvolution, BoxFilterGivesTheMeanOfThePixelsInsideTheImage) {
  for (const int width : {1, 2, 3, 8, 21})
    for (const int height : {1, 9})
      for (const int radius : {0, 1, 4, std::numeric_limits<int>::max()}) {
        SuperResolutionConvolution convolution(width, height, 0, 0, 1.0f);
        cv::Mat_<float> in(movra::test::randomImage(width * height, 280, 320, 7), true), out(height, width);
        in = in.reshape(1, height);
        convolution.sameConvOnes(in[0], radius, out[0]);
        for (int y = 0; y < height; ++y)
          for (int x = 0; x < width; ++x) {
            const int reach = std::min(radius, 100), side = 2 * reach + 1;
            const cv::Rect window = cv::Rect(x - reach, y - reach, side, side) & cv::Rect({}, in.size());
            EXPECT_NEAR(out(y, x), cv::mean(in(window))[0], 1e-3)
                << width << 'x' << height << " radius " << radius << " at " << y << ' ' << x;
          }
        convolution.sameConvOnes(in[0], radius, in[0]);
        EXPECT_EQ(cv::norm(in, out, cv::NORM_INF), 0) << "in place";
      }
}
