#include "vision/superresolution/SrFloatRegistration1.h"

#include "tests/support/RealBurst.h"
#include "tests/support/RegistrationRun.h"
#include "tests/support/Test.h"
#include "vision/superresolution/SrFloatRegistration2.h"
#include "vision/superresolution/detail/registration/PhaseRegistration.h"

namespace movra::vision {
namespace {

using namespace movra::test;

using PhaseRun = RegistrationRun<SrFloatRegistration1>;

TEST(CorrelationPeakTest, EveryPlaceIsASignedShiftAndTheFirstOfEqualMaximaCounts) {
  onEveryInstructionSet([] {
    constexpr int width = 38, height = 5;
    Image surface(width * height, 2.0f);
    const auto peak = [&] { return detail::correlationPeak(surface.data(), width, height); };
    EXPECT_EQ(peak(), cv::Point());  // flat
    // From the last place to the first. Exactly half the size stays positive, also where division cuts an odd size.
    for (const auto& [x, y, shift] :
         {std::tuple(37, 4, cv::Point(-1, -1)), std::tuple(20, 3, cv::Point(-18, -2)),
          std::tuple(19, 2, cv::Point(19, 2)), std::tuple(2, 0, cv::Point(2, 0)), std::tuple(1, 0, cv::Point(1, 0))}) {
      surface[static_cast<std::size_t>(y * width + x)] = 3.0f;
      EXPECT_EQ(peak(), shift);
    }
    surface[1] = notANumber;
    EXPECT_EQ(peak(), cv::Point(2, 0));
    for (const float first : {3.0f, notANumber}) {  // no peak above the first value
      surface[0] = first;
      EXPECT_EQ(peak(), cv::Point());
    }
  });
}

TEST(SrFloatRegistration1Test, RecoversKnownShifts) {
  const SyntheticBurst burst =
      makeBurst({96, 72, {{0, 0}, {0.31f, -0.22f}, {7.4f, -5.3f}, {-9.25f, 6.62f}, {-0.6f, -12.1f}}});
  PhaseRun r(96, 72, 5);
  r.prepareAll(burst.frames);
  ASSERT_EQ(r.run(), 0);
  for (std::size_t i = 0; i < r.shifts.size(); ++i) {
    const Shift complete = r.registration.getCompleteShifts()[i];
    EXPECT_NEAR(complete.x, burst.shifts[i].x, 0.08) << i;
    EXPECT_NEAR(complete.y, burst.shifts[i].y, 0.08) << i;

    // The whole pixels went into the frame, the rest is returned.
    const int ix = static_cast<int>(std::floor(complete.x + 0.5f));
    const int iy = static_cast<int>(std::floor(complete.y + 0.5f));
    EXPECT_EQ(r.shifts[i], Shift(complete.x - static_cast<float>(ix), complete.y - static_cast<float>(iy)));
    EXPECT_EQ(r.shifted[i][40 * 96 + 48], r.frames[i][static_cast<std::size_t>((40 + iy) * 96 + 48 + ix)]);

    // Trusted are pixels that the frame covers, and most of those.
    const cv::Mat_<char> mask(72, 96, r.masks[i].data());
    const cv::Rect covered(std::max(0, -ix), std::max(0, -iy), 96 - std::abs(ix), 72 - std::abs(iy));
    EXPECT_EQ(cv::countNonZero(mask), cv::countNonZero(mask(covered))) << i;
    EXPECT_GT(cv::countNonZero(mask), 0.6 * covered.area()) << i;
  }
  EXPECT_EQ(r.registration.getCompleteShifts()[0], Shift(0, 0));
  EXPECT_EQ(r.masks[0], Mask(96 * 72, 1));
}

TEST(SrFloatRegistration1Test, ShiftBeyondHalfTheHeightIsTooLarge) {
  // 26 of 96 columns would do, but the height of 48 rows bounds both axes.
  PhaseRun r(96, 48, 2);
  r.prepareAll(makeBurst({96, 48, {{0, 0}, {-26, 0}}}).frames);
  const std::string place = "vision/superresolution/SrFloatRegistration1.cpp: 144: doRegistration(..)\n";
  EXPECT_EQ(endOfLocationThrownBy([&] { r.run(); }, place.size()), place);
}

TEST(SrFloatRegistration1Test, FramesWithoutShiftEndInTheSameException) {
  const std::vector<Image> good = makeBurst({48, 40, {{0, 0}, {0.4f, 0}}}).frames;
  std::vector<std::vector<Image>> bursts(3, good);
  bursts[0][0].assign(good[0].size(), 300.0f);
  bursts[1][0][100] = notANumber;
  bursts[2][1][100] = infinity;
  for (const std::vector<Image>& frames : bursts) {
    PhaseRun r(48, 40, 2);
    r.prepareAll(frames);
    EXPECT_EQ(textThrownBy([&] { r.run(); }), "exception: Too large displacement");
    EXPECT_EQ(r.masks[1], Mask(48 * 40, 0));
  }
}

TEST(SrFloatRegistration1Test, HoldsTheLastFrames) {
  const std::vector<Image> frames =
      makeBurst({48, 40, {{0, 0}, {2.1f, 0.4f}, {-3.3f, 1.2f}, {0.7f, -4.6f}, {5.2f, 3.1f}}}).frames;
  PhaseRun fresh(48, 40, 3), used(48, 40, 3);
  fresh.prepareAll({frames.begin() + 2, frames.end()});
  used.prepareAll(frames);
  ASSERT_EQ(fresh.run(), 0);
  ASSERT_EQ(used.run(), 0);
  EXPECT_EQ(used.registration.getCompleteShifts(), fresh.registration.getCompleteShifts());
  EXPECT_EQ(used.shifted, fresh.shifted);
  EXPECT_EQ(used.masks, fresh.masks);
  for (const int reference : {3, -1}) {
    EXPECT_EQ(used.run(reference), SrFloatRegistration1::noFrames);
  }
  EXPECT_THROW(used.registration.prepareFrame(nullptr), Exception);
  used.registration.clearFrames();
  EXPECT_EQ(used.registration.getCompleteShifts(), fresh.registration.getCompleteShifts());
  EXPECT_EQ(used.run(), SrFloatRegistration1::noFrames);
}

TEST(SrFloatRegistration1Test, SizesAndRadiusMustFit) {
  EXPECT_THROW(SrFloatRegistration1(-1, 40, 5), std::bad_array_new_length);
  EXPECT_THROW(SrFloatRegistration1(0, 10, 5), Exception);
  for (const auto& [width, height] : {std::pair(8, 6), std::pair(1, 1), std::pair(40, 10)}) {
    PhaseRun small(width, height, 2);  // takes a Gaussian that fits, and keeps the radius that was asked for
    EXPECT_EQ(small.registration.getGaussRadius(), 5);
    EXPECT_THROW(small.registration.setGaussRadius(5), Exception);
    small.prepareAll({2, Image(static_cast<std::size_t>(width * height), 3)});
  }
  PhaseRun r(40, 11, 2);
  for (const int radius : {-1, 6, std::numeric_limits<int>::max()}) {
    EXPECT_THROW(r.registration.setGaussRadius(radius), Exception);
  }
  EXPECT_EQ(r.registration.getGaussRadius(), 5);

  // Without blur, frames that are equal but for a whole-pixel shift stay so.
  r.registration.setGaussRadius(0);
  const Image still = makeBurst({40, 11, {{0, 0}}}).frames[0];
  Image moved = still;
  std::rotate(moved.begin(), moved.begin() + 2 * 40 - 3, moved.end());
  r.prepareAll({still, moved});
  ASSERT_EQ(r.run(), 0);
  EXPECT_NEAR(r.registration.getCompleteShifts()[1].x, 3, 1e-3);
  EXPECT_NEAR(r.registration.getCompleteShifts()[1].y, -2, 1e-3);
}

/// Both registrations measure the same thing by different means; on real frames, which also turn a little and hold
/// noise, they differ by less than this part of a pixel. Left out are frames farther away whose highest peak is that of
/// the sensor's fixed pattern, which does not move with the scene.
TEST(SrFloatRegistration1Test, AgreesWithCornersOnRealBursts) {
  constexpr double tolerance = 0.1;
  const std::pair<const char*, std::vector<int>> bursts[] = {
      {"van_320x240", {3, 0, 1, 2, 4}}, {"ground_crosses_382x288", {3, 1, 2}}, {"street_640x480", {3, 0, 1, 2, 4}}};
  for (const auto& [name, numbers] : bursts) {
    SCOPED_TRACE(name);
    const SyntheticBurst burst = readRealBurst(name, numbers);
    if (burst.frames.empty()) {
      GTEST_SKIP() << "no burst " << name << " in " << realBurstFolder();
    }
    const int count = static_cast<int>(numbers.size());
    PhaseRun byPhase(burst.width, burst.height, count);
    RegistrationRun<SrFloatRegistration2> byCorners(burst.width, burst.height, count);
    byPhase.prepareAll(burst.frames);
    byCorners.prepareAll(burst.frames);
    ASSERT_EQ(byPhase.run(), 0);
    ASSERT_EQ(byCorners.run(), 0);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      const Shift difference =
          byPhase.registration.getCompleteShifts()[i] - byCorners.registration.getCompleteShifts()[i];
      EXPECT_LT(std::max(std::abs(difference.x), std::abs(difference.y)), tolerance) << numbers[i];
    }
  }
}

}  // namespace
}  // namespace movra::vision
