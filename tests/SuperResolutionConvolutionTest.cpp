#include "vision/superresolution/reference/SuperResolutionConvolution.h"

#include <gtest/gtest.h>

#include <limits>
#include <new>

#include "tests/support/Checks.h"
#include "tests/support/SparseArrays.h"

using namespace movra::test;
using movra::vision::SuperResolutionConvolution;

TEST(SuperResolutionConvolution, ImagingFollowsItsDefinitionAndTheTransposeIsAdjoint) {
  for (const float factor : {1.0f, 2.0f, 3.0f, 4.0f}) {
    const int taps = static_cast<int>(3 * factor);
    for (const int hrWidth : {1, 4, 7, 12, 37})
      for (const int hrHeight : {3, 8, 13})
        for (const int psfHeight : {1, taps}) {
          SparseArrays c{hrWidth, hrHeight, taps, psfHeight, factor};
          c.roundToIntegers();
          SuperResolutionConvolution operators(hrWidth, hrHeight, taps, psfHeight, factor);
          EXPECT_EQ(c.imaged(operators),
                    c.imagedByDefinition(static_cast<int>(factor), static_cast<int>(factor)))
              << c.name();
          const auto [imaging, transpose] = c.adjointProducts(operators);
          EXPECT_EQ(imaging, transpose) << c.name();
        }
  }
}

TEST(SuperResolutionConvolution, MaskBytesAreSignedWeights) {
  SparseArrays c{8, 6, 6, 6, 2.0f}, weighted = c;
  SuperResolutionConvolution operators(8, 6, 6, 6, 2.0f);
  const char weights[] = {0, 1, 2, static_cast<char>(-1), static_cast<char>(-128)};
  for (std::size_t i = 0; i < c.mask.size(); ++i) {
    c.mask[i] = weights[i % 5];
    weighted.image[i] *= Image{0, 1, 2, -1, -128}[i % 5];
  }
  EXPECT_EQ(c.transposed(operators), weighted.transposed(operators));
}

TEST(SuperResolutionConvolution, AwkwardSizesAndFactorsStayInsideTheArrays) {
  for (const float factor : {1.3f, 1.99f, 2.5f, 3.7f, 1e30f})
    for (const int hrWidth : {0, 1, 5, 11})
      for (const int hrHeight : {0, 1, 9})
        for (const int psf : {0, 1, 2, 7}) {
          SparseArrays c{hrWidth, hrHeight, psf, 7 - psf, factor};
          c.roundToIntegers();
          const auto [imaging, transpose] =
              c.adjointProducts(SuperResolutionConvolution(hrWidth, hrHeight, psf, 7 - psf, factor));
          EXPECT_EQ(imaging, transpose) << c.name();
        }
  for (const float factor : {notANumber, 0.0f, -2.0f, 1e-30f}) {
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
        cv::Mat_<float> in(randomImage(width * height, 280, 320, 7), true), out(height, width);
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
