#include "vision/superresolution/detail/registration/FrameBlur.h"

#include <opencv2/imgproc.hpp>
#include "tests/support/Test.h"

namespace movra::vision::detail {
namespace {

using namespace movra::test;

// Temperatures, and values of all magnitudes, whose sums are rounded the most.
cv::Mat_<float> someImage(cv::RNG& random, cv::Size size, bool isWide) {
  cv::Mat_<float> image(size);
  random.fill(image, cv::RNG::UNIFORM, 290, 310);
  for (float& value : image) {
    value = isWide ? std::ldexp(value - 300.0f, random.uniform(-20, 20)) : value;
  }
  return image;
}

TEST(FrameBlur, HasTheBitsOfTheLibraryFunctionAndGivesTheRange) {
  cv::RNG random(21);
  for (int trial = 0; trial < 300; ++trial) {
    const cv::Size size(random.uniform(1, trial % 20 == 0 ? 200 : 40), random.uniform(1, 40));
    const cv::Mat_<float> image = someImage(random, size, trial % 2 == 0);
    cv::Mat_<float> expected;
    cv::GaussianBlur(image, expected, {11, 11}, static_cast<double>(std::sqrt(3.0f)), 0, cv::BORDER_REFLECT_101);
    bool isFirst = !openCvFuses();
    onEveryInstructionSet([&] {
      cv::Mat_<float> blurred(size);
      FrameBlur blur(size.width, size.height);
      const ValueRange range = blur.apply(image.ptr<float>(), blurred.ptr<float>());
      if (isFirst) {
        blurred.copyTo(expected);
        isFirst = false;
      }
      ASSERT_TRUE(std::equal(blurred.begin(), blurred.end(), expected.begin())) << size << " trial " << trial;
      EXPECT_EQ(range.lowest, *std::min_element(blurred.begin(), blurred.end()));
      EXPECT_EQ(range.highest, *std::max_element(blurred.begin(), blurred.end()));
    });
  }
}

TEST(FrameBlur, RangeLeavesOutWhatIsNotANumber) {
  Image image(20 * 30, 5.0f);
  image[0] = notANumber;
  image[599] = 6.0f;
  Image blurred(image.size());
  FrameBlur blur(20, 30);
  const ValueRange range = blur.apply(image.data(), blurred.data());
  EXPECT_EQ(range.lowest, 5.0f);
  EXPECT_EQ(range.highest, blurred[599]);
  std::fill(image.begin(), image.end(), notANumber);
  const ValueRange none = blur.apply(image.data(), blurred.data());
  EXPECT_GT(none.lowest, none.highest);
}

// Sums that lie between two floats but for a part that a double cannot hold are what a second rounding would spoil.
TEST(FilterKernels, RoundFusedOperationsOnceOnEveryInstructionSet) {
  cv::RNG random(22);
  Image row;
  for (int i = 0; i < 20000; ++i) {
    row.push_back(std::ldexp(static_cast<float>(random.uniform(1 << 23, 1 << 24)), random.uniform(-60, 10)));
  }
  const float one = 1.0f + std::ldexp(1.0f, -23);
  const float taps[blurTaps] = {one, -one, 1.0f, std::ldexp(one, -30), one, -1, one, one, std::ldexp(1.0f, -24),
                                1,   one};
  const int count = static_cast<int>(row.size()) - blurTaps + 1;
  onEveryInstructionSet([&] {
    Image sums(row.size());
    filterKernels().fusedBlurRow(row.data(), taps, count, sums.data());
    for (int x = 0; x < count; ++x) {
      float expected = row[static_cast<std::size_t>(x)] * taps[0];
      for (int i = 1; i < blurTaps; ++i) {
        expected = std::fma(row[static_cast<std::size_t>(x + i)], taps[i], expected);
      }
      ASSERT_EQ(sums[static_cast<std::size_t>(x)], expected) << x;
    }
  });
}

}  // namespace
}  // namespace movra::vision::detail
