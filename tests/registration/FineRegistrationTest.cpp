#include "tests/support/Test.h"
#include "vision/superresolution/detail/registration/FineRegistration.h"

namespace movra::vision::detail {
namespace {

using namespace movra::test;

constexpr int width = 53;
constexpr int height = 38;
constexpr int pixels = width * height;

TEST(FineRegistration, TrustsNothingWithoutACommonFiniteImage) {
  const Image image = randomImage(pixels, 20, 21, 3);
  const Mask none(pixels, 0);
  Mask mask = none;
  FineRegistration fine(width, height);
  fine.regError = 1;
  fine.setReference(image.data());
  for (const cv::Point beyond : {cv::Point(width, 0), cv::Point(0, -height)}) {
    EXPECT_EQ(fine.step(image.data(), image.data(), beyond, mask.data()), Shift(beyond));
  }
  Image holed = image;
  holed[pixels / 2] = notANumber;
  EXPECT_TRUE(std::isnan(fine.step(image.data(), holed.data(), {0, 0}, mask.data()).x));

  const Image flat(pixels, 7);
  fine.setReference(flat.data());
  EXPECT_FALSE(std::isfinite(fine.step(flat.data(), image.data(), {0, 0}, mask.data()).x));
  EXPECT_EQ(mask, none);
}

}  // namespace
}  // namespace movra::vision::detail
