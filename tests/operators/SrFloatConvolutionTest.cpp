#include "vision/superresolution/SrFloatConvolution.h"

#include "tests/support/SparseArrays.h"
#include "tests/support/Test.h"
#include "vision/superresolution/reference/SuperResolutionConvolution.h"

using namespace movra::test;
using movra::vision::SrFloatConvolution;
using movra::vision::SuperResolutionConvolution;

TEST(SrFloatConvolution, OperatorsEqualThePlainLoopsAtEverySizeAndInstructionSet) {
  // Shifted right by less than a pixel, not shifted, shifted left, and extrapolated beyond half a pixel.
  const std::vector<Image> kernels{{0.04f, 0.31f, 0.43f, 0.2f, 0.02f, 0},
                                   {0, 0.07f, 0.43f, 0.43f, 0.07f, 0},
                                   {0, 0.01f, 0.19f, 0.43f, 0.32f, 0.05f},
                                   {0.16f, 0.85f, 0.43f, -0.29f, -0.15f, 0}};
  const char weights[] = {1, 0, 1, 3, -1, -128, 127};
  onEveryInstructionSet([&] {
    for (int width = 1; width <= 40; ++width) {
      for (const int height : {1, 2, 3, 4, 5, 9}) {
        SparseArrays c{2 * width, 2 * height, 6, 6, 2.0f};
        SrFloatConvolution operators(2 * width, 2 * height, 6, 6, 2.0f);
        SuperResolutionConvolution plainLoops(2 * width, 2 * height, 6, 6, 2.0f);
        c.psfX = kernels[static_cast<std::size_t>(width) % 4];
        c.psfY = kernels[static_cast<std::size_t>(width / 4 + height) % 4];
        for (std::size_t i = 0; i < c.mask.size(); ++i) {
          c.mask[i] = weights[i % 7];
        }
        if (width % 5 == 0) {
          // from which zeros come out positive
          c.hr.assign(c.hr.size(), -0.0f);
        }
        ASSERT_TRUE(sameBits(c.transposed(operators), c.transposed(plainLoops))) << c.name();
        ASSERT_TRUE(sameBits(c.imaged(operators), c.imaged(plainLoops))) << c.name();
        // Nothing of the call before is left in the scratch memory.
        ASSERT_TRUE(sameBits(c.transposed(operators), c.transposed(plainLoops))) << c.name() << " again";
      }
    }
  });
}

TEST(SrFloatConvolution, OtherFactorsKeepTheRowStrideOfTwo) {
  SparseArrays c{12, 9, 9, 9, 3.0f};
  c.roundToIntegers();
  SrFloatConvolution operators(12, 9, 9, 9, 3.0f);
  EXPECT_EQ(c.imaged(operators), c.imagedByDefinition(2, 3));
  const auto [imaging, transpose] = c.adjointProducts(operators);
  EXPECT_EQ(imaging, transpose);
}

TEST(SrFloatConvolution, BoxFilterEqualsThePlainLoopsAtEverySizeAndInstructionSet) {
  onEveryInstructionSet([] {
    for (int width = 1; width <= 40; ++width) {
      for (const int height : {1, 2, 7, 16, 19}) {
        Image in = randomImage(width * height, 280, 320, 3), expected(in.size());
        SuperResolutionConvolution plainLoops(width, height, 1, 1, 1.0f);
        for (const int radius : {0, 1, 5, 11, 50}) {
          SCOPED_TRACE(testing::Message() << width << 'x' << height << " radius " << radius);
          plainLoops.sameConvOnes(in.data(), radius, expected.data());
          // A part of a larger image, and in place.
          cv::Mat_<float> frame(height + 2, width + 3, 1e30f), out;
          cv::Mat_<float> part = frame(cv::Rect(1, 1, width, height));
          cv::Mat_<float>(height, width, in.data()).copyTo(part);
          SrFloatConvolution::blurImageMeanFilter(part, radius, out);
          ASSERT_EQ(Image(out.begin(), out.end()), expected);
          SrFloatConvolution::blurImageMeanFilter(part, radius, part);
          ASSERT_EQ(Image(part.begin(), part.end()), expected);
          ASSERT_EQ(frame(0, 0), 1e30f);
        }
      }
    }
  });
}
