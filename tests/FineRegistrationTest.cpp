#include "vision/superresolution/detail/FineRegistration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "benchmarks/straight/StraightRegistration.h"
#include "tests/support/Checks.h"
#include "tests/support/InstructionSetGuard.h"
#include "tests/support/SyntheticBurst.h"

namespace movra::vision::detail {
namespace {

using namespace movra::test;

constexpr int width = 53;
constexpr int height = 38;
constexpr int pixels = width * height;

TEST(FineRegistration, EqualsTheStraightLoops) {
  const Image reference = randomImage(pixels, 20, 21, 1);
  const Image frame = randomImage(pixels, 20, 21, 2);
  const float regError = 1.8f / pixels;  // about the mean residual of unrelated images
  StraightFineStep straight(width, height);
  straight.regError = regError;
  straight.setReference(reference.data());
  for (const cv::Point_<int> coarse :
       {cv::Point(0, 0), cv::Point(3, -2), cv::Point(-5, 4), cv::Point(17, 9), cv::Point(-16, -31),
        cv::Point(0, 1), cv::Point(width - 4, 0), cv::Point(2, 4 - height)}) {
    SCOPED_TRACE(coarse);
    Mask expected(pixels, 0);
    expected.front() = expected.back() = 1;  // never cleared
    const Mask before = expected;
    const Shift expectedShift = straight.step(reference.data(), frame.data(), coarse, expected.data());
    const auto trusted = std::count(expected.begin(), expected.end(), 1);
    onEveryInstructionSet([&] {
      FineRegistration fine(width, height);
      fine.regError = regError;
      fine.setReference(reference.data());
      Mask mask = before;
      const Shift shift = fine.step(reference.data(), frame.data(), coarse, mask.data());
      EXPECT_EQ(shift, expectedShift);
      EXPECT_EQ(mask, expected);

      std::vector<float> floatMask(before.begin(), before.end());
      EXPECT_EQ(fine.step(reference.data(), frame.data(), coarse, floatMask.data()), shift);
      EXPECT_TRUE(std::equal(floatMask.begin(), floatMask.end(), mask.begin()));
    });
    EXPECT_TRUE(coarse != cv::Point(0, 0) || (trusted > pixels / 4 && trusted < pixels * 3 / 4));
  }
}

TEST(FineRegistration, TrustsNothingWithoutACommonFiniteImage) {
  const Image image = randomImage(pixels, 20, 21, 3);
  const Mask none(pixels, 0);
  Mask mask = none;
  FineRegistration fine(width, height);
  fine.regError = 1;
  fine.setReference(image.data());
  constexpr int least = std::numeric_limits<int>::min();
  for (const cv::Point_<int> beyond :
       {cv::Point(width, 0), cv::Point(0, -height), cv::Point(-9000, 7), cv::Point(least, least)}) {
    const Shift shift = fine.step(image.data(), image.data(), beyond, mask.data());
    EXPECT_EQ(shift, Shift(static_cast<float>(beyond.x), static_cast<float>(beyond.y)));
  }
  Image holed = image;
  holed[pixels / 2] = notANumber;
  EXPECT_TRUE(std::isnan(fine.step(image.data(), holed.data(), {0, 0}, mask.data()).x));

  const Image flat(pixels, 7);
  fine.setReference(flat.data());
  EXPECT_FALSE(std::isfinite(fine.step(flat.data(), image.data(), {0, 0}, mask.data()).x));
  EXPECT_EQ(mask, none);
}

TEST(FineRegistration, TakesImagesOfAnySize) {
  for (const auto& [columns, rows] :
       {std::pair(1, 1), std::pair(1, 6), std::pair(7, 1), std::pair(2, 2), std::pair(3, 5)}) {
    const Image image = randomImage(columns * rows, 0, 1, 4);
    Mask mask(image.size(), 0);
    FineRegistration fine(columns, rows);
    fine.setReference(image.data());
    fine.step(image.data(), image.data(), {0, 0}, mask.data());
    EXPECT_TRUE(columns == 1 || rows == 1 || mask == Mask(image.size(), 1)) << columns << " x " << rows;
  }
}

}  // namespace
}  // namespace movra::vision::detail
