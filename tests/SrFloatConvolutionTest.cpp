#include "vision/superresolution/SrFloatConvolution.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/Checks.h"
#include "tests/support/InstructionSetGuard.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/reference/SuperResolutionConvolution.h"

using namespace movra::test;
using movra::vision::SrFloatConvolution;
using movra::vision::SuperResolutionConvolution;

namespace {

constexpr float sentinel = 1e30f;

/// One frame's operators at factor 2 with six taps, and arrays of their exact sizes.
struct Case {
  int width, height;
  int paddedWidth = 2 * width + 5, paddedHeight = 2 * height + 5;
  Image sample = randomImage(width * height, -2, 2, 1),
        hr = randomImage(paddedWidth * paddedHeight, -2, 2, 2);
  Image psfX = {}, psfY = {};
  Mask mask = Mask(sample.size(), 1);
  SrFloatConvolution operators{2 * width, 2 * height, 6, 6, 2.0f};
  SuperResolutionConvolution plainLoops{2 * width, 2 * height, 6, 6, 2.0f};

  template <class Operators>
  Image transposed(Operators& by) {
    Image out(hr.size(), sentinel);
    by.fullConvFromSparse(sample.data(), psfX.data(), psfY.data(), mask.data(), out.data());
    return out;
  }
  template <class Operators>
  Image imaged(Operators& by) {
    Image out(sample.size(), sentinel);
    by.validCorrToSparse(hr.data(), psfX.data(), psfY.data(), out.data());
    return out;
  }
  std::string name() const { return std::to_string(width) + "x" + std::to_string(height); }
};

// Shifted right by less than a pixel, not shifted, shifted left, and extrapolated beyond half a pixel.
const std::vector<Image> kernels{{0.04f, 0.31f, 0.43f, 0.2f, 0.02f, 0},
                                 {0, 0.07f, 0.43f, 0.43f, 0.07f, 0},
                                 {0, 0.01f, 0.19f, 0.43f, 0.32f, 0.05f},
                                 {0.16f, 0.85f, 0.43f, -0.29f, -0.15f, 0}};

}  // namespace

TEST(SrFloatConvolution, OperatorsEqualThePlainLoopsAtEverySizeAndInstructionSet) {
  const std::vector<int> heights{1, 2, 3, 4, 5, 9};
  onEveryInstructionSet([&] {
    for (int width = 1; width <= 40; ++width) {
      for (const int height : heights) {
        Case c{width, height};
        c.psfX = kernels[static_cast<std::size_t>(width) % 4];
        c.psfY = kernels[static_cast<std::size_t>(width / 4 + height) % 4];
        const char weights[] = {1, 0, 1, 3, -1, -128, 127};
        for (std::size_t i = 0; i < c.mask.size(); ++i) c.mask[i] = weights[i % 7];
        if (width % 5 == 0) c.hr.assign(c.hr.size(), -0.0f);  // from which zeros come out positive
        ASSERT_TRUE(sameBits(c.transposed(c.operators), c.transposed(c.plainLoops))) << c.name();
        ASSERT_TRUE(sameBits(c.imaged(c.operators), c.imaged(c.plainLoops))) << c.name();
        // Nothing of the call before is left in the scratch memory.
        ASSERT_TRUE(sameBits(c.transposed(c.operators), c.transposed(c.plainLoops))) << c.name() << " again";
      }
    }
  });
}

TEST(SrFloatConvolution, OtherFactorsKeepTheRowStrideOfTwo) {
  constexpr int stride = 2, factor = 3, taps = 9, lw = 4, lh = 3;
  constexpr int paddedWidth = factor * lw + taps - 1, paddedHeight = factor * lh + taps - 1;
  // Small integers, whose sums are exact in any order.
  Image image(lw * lh), hr(paddedWidth * paddedHeight), psfX(taps), psfY(taps),
      imaged(image.size(), sentinel), transposed(hr.size(), sentinel);
  const auto fill = [](Image& values, int step) {
    for (std::size_t i = 0; i < values.size(); ++i)
      values[i] = static_cast<float>(static_cast<int>(i) * step % 11 - 4);
  };
  fill(image, 3);
  fill(hr, 5);
  fill(psfX, 7);
  fill(psfY, 2);
  Image expectedImaged(image.size()), expectedTransposed(hr.size());
  for (int r = 0; r < lh; ++r)
    for (int x = 0; x < lw; ++x)
      for (int ky = 0; ky < taps; ++ky)
        for (int kx = 0; kx < taps; ++kx) {
          const auto low = static_cast<std::size_t>(r * lw + x);
          const auto high = static_cast<std::size_t>((stride * r + ky) * paddedWidth + factor * x + kx);
          const float weight = psfY[static_cast<std::size_t>(ky)] * psfX[static_cast<std::size_t>(kx)];
          expectedImaged[low] += weight * hr[high];
          expectedTransposed[high] += weight * image[low];
        }
  SrFloatConvolution operators(factor * lw, factor * lh, taps, taps, factor);
  Mask mask(image.size(), 1);
  operators.validCorrToSparse(hr.data(), psfX.data(), psfY.data(), imaged.data());
  operators.fullConvFromSparse(image.data(), psfX.data(), psfY.data(), mask.data(), transposed.data());
  EXPECT_EQ(imaged, expectedImaged);
  EXPECT_EQ(transposed, expectedTransposed);
}

TEST(SrFloatConvolution, BoxFilterEqualsThePlainLoopsAtEverySizeAndInstructionSet) {
  onEveryInstructionSet([] {
    for (int width = 1; width <= 40; ++width) {
      for (const int height : {1, 2, 7, 16, 19}) {
        Image in = randomImage(width * height, 280, 320, 3), expected(in.size());
        SuperResolutionConvolution plainLoops(width, height, 1, 1, 1.0f);
        for (const int radius : {0, 1, 2, 5, 11, 50}) {
          plainLoops.sameConvOnes(in.data(), radius, expected.data());
          cv::Mat_<float> input(height, width, in.data()), out;
          SrFloatConvolution::blurImageMeanFilter(input, radius, out);
          SCOPED_TRACE(testing::Message() << width << 'x' << height << " radius " << radius);
          ASSERT_EQ(Image(out.begin(), out.end()), expected);

          // Parts of larger images, and in place.
          cv::Mat_<float> frame(height + 2, width + 3, sentinel);
          cv::Mat_<float> part = frame(cv::Rect(1, 1, width, height));
          input.copyTo(part);
          SrFloatConvolution::blurImageMeanFilter(part, radius, part);
          ASSERT_EQ(Image(part.begin(), part.end()), expected);
          ASSERT_EQ(frame(0, 0), sentinel);
        }
      }
    }
  });
}
