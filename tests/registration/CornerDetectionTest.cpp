#include "vision/superresolution/detail/registration/CornerDetection.h"

#include <opencv2/imgproc.hpp>
#include "tests/support/Test.h"

// Noise of three kinds: smooth, coarse, and of few values, which has many equally strong corners.
TEST(CornerDetection, EqualsTheLibraryFunctionWithItsOrder) {
  if (!openCvFuses()) {
    GTEST_SKIP() << "OpenCV rounds otherwise on this processor";
  }
  cv::RNG random(3);
  movra::vision::detail::CornerDetector detector;
  std::size_t found = 0;
  for (int trial = 0; trial < 400; ++trial) {
    cv::Mat_<float> image(random.uniform(1, 90), random.uniform(1, 120));
    random.fill(image, cv::RNG::UNIFORM, 20, 23);
    if (trial % 4 == 0) {
      cv::GaussianBlur(image, image, {11, 11}, 0);
    }
    if (trial % 4 == 1) {
      image.forEach([](float& value, const int*) { value = std::round(value); });
    }
    if (trial % 4 == 2) {
      cv::resize(image, image, image.size() * 3, 0, 0, cv::INTER_NEAREST);
    }
    if (trial % 40 == 3) {
      image(image.rows / 2, image.cols / 2) = std::numeric_limits<float>::quiet_NaN();
    }
    if (trial % 40 == 7) {
      image = 21.0f;
    }
    std::vector<cv::Point2f> expected;
    cv::goodFeaturesToTrack(image, expected, 100, 0.1, 2.0, cv::noArray(), 3, false, 0.04);
    movra::test::onEveryInstructionSet(
        [&] { EXPECT_EQ(detector.find(image), expected) << image.size() << " trial " << trial; });
    found += expected.size();
  }
  EXPECT_GT(found, 5000u);
}
