#include "vision/superresolution/SrFloatRegistration1.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "movra/Exception.h"
#include "tests/support/InstructionSetGuard.h"
#include "tests/support/RealBurst.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatRegistration2.h"
#include "vision/superresolution/detail/PhaseRegistration.h"

namespace movra::vision {
namespace {

using test::BurstRecipe;
using test::Image;
using test::makeBurst;
using test::onEveryInstructionSet;
using test::Shift;
using test::SyntheticBurst;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

/// A burst and the arrays that a registration fills.
struct Registered {
  explicit Registered(SyntheticBurst given) : burst(std::move(given)) { moved = burst.frames; }

  template <class Registration>
  int run(Registration& registration, int refIndex = 0) {
    const auto frames = burst.framePointers();
    for (float* frame : frames) {
      registration.prepareFrame(frame);
    }
    return registerHeld(registration, refIndex);
  }

  template <class Registration>
  int registerHeld(Registration& registration, int refIndex = 0) {
    auto frames = burst.framePointers();
    auto masks = burst.maskPointers();
    std::vector<float*> targets;
    for (Image& image : moved) {
      targets.push_back(image.data());
    }
    shifts.assign(frames.size(), {9, 9});
    return registration.doRegistration(static_cast<int>(frames.size()), refIndex, frames.data(),
                                       shifts.data(), masks.data(), targets.data());
  }

  SyntheticBurst burst;
  std::vector<Image> moved;
  std::vector<Shift> shifts;
};

/// The frame that shows `image` moved by (dx, dy), what leaves on one side entering on the other.
Image rolled(const Image& image, int width, int height, int dx, int dy) {
  Image result(image.size());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int toX = ((x + dx) % width + width) % width;
      const int toY = ((y + dy) % height + height) % height;
      result[static_cast<std::size_t>(toY * width + toX)] = image[static_cast<std::size_t>(y * width + x)];
    }
  }
  return result;
}

std::string locationOfLargeDisplacement(const std::function<void()>& action) {
  try {
    action();
  } catch (const Exception& e) {
    EXPECT_STREQ(e.what(), "Too large displacement");
    return e.location();
  }
  ADD_FAILURE() << "nothing thrown";
  return {};
}

TEST(CorrelationPeakTest, EveryPlaceIsASignedShift) {
  onEveryInstructionSet([] {
    for (const auto& [width, height] :
         {std::pair(37, 5), std::pair(6, 4), std::pair(1, 7), std::pair(16, 2)}) {
      Image surface(static_cast<std::size_t>(width * height), -1.0f);
      for (int i = 1; i < width * height; ++i) {
        surface[static_cast<std::size_t>(i)] = 2.0f;
        const cv::Point_<int> peak = detail::correlationPeak(surface.data(), width, height);
        // Exactly half the size stays positive, also where integer division cuts an odd size.
        EXPECT_EQ(peak.x, i % width - (i % width > width / 2 ? width : 0));
        EXPECT_EQ(peak.y, i / width - (i / width > height / 2 ? height : 0));
        surface[static_cast<std::size_t>(i)] = -1.0f;
      }
    }
  });
}

TEST(CorrelationPeakTest, FirstOfEqualMaximaAndNaN) {
  onEveryInstructionSet([] {
    constexpr int width = 20;
    constexpr int height = 4;
    const cv::Point_<int> none(0, 0);
    Image surface(width * height, 3.0f);
    EXPECT_EQ(detail::correlationPeak(surface.data(), width, height), none);  // flat

    surface[21] = surface[5] = surface[70] = 4.0f;
    EXPECT_EQ(detail::correlationPeak(surface.data(), width, height), cv::Point_<int>(5, 0));
    surface[0] = 4.0f;
    EXPECT_EQ(detail::correlationPeak(surface.data(), width, height), none);  // no peak above the first value

    surface[0] = 3.0f;
    surface[4] = surface[37] = surface[79] = nan;
    EXPECT_EQ(detail::correlationPeak(surface.data(), width, height), cv::Point_<int>(5, 0));
    surface[0] = nan;
    EXPECT_EQ(detail::correlationPeak(surface.data(), width, height), none);
    std::fill(surface.begin(), surface.end(), nan);
    EXPECT_EQ(detail::correlationPeak(surface.data(), width, height), none);
  });
}

TEST(SrFloatRegistration1Test, RecoversKnownShifts) {
  Registered r(
      makeBurst({96, 72, {{0, 0}, {0.31f, -0.22f}, {7.4f, -5.3f}, {-9.25f, 6.62f}, {-0.6f, -12.1f}}}));
  SrFloatRegistration1 registration(96, 72, 5);
  ASSERT_EQ(r.run(registration), 0);
  for (std::size_t i = 0; i < r.shifts.size(); ++i) {
    const Shift complete = registration.getCompleteShifts()[i];
    EXPECT_NEAR(complete.x, r.burst.shifts[i].x, 0.08) << i;
    EXPECT_NEAR(complete.y, r.burst.shifts[i].y, 0.08) << i;

    // The whole pixels went into the frame, the rest is returned.
    const int ix = static_cast<int>(std::floor(complete.x + 0.5f));
    const int iy = static_cast<int>(std::floor(complete.y + 0.5f));
    EXPECT_EQ(r.shifts[i], Shift(complete.x - static_cast<float>(ix), complete.y - static_cast<float>(iy)));
    EXPECT_EQ(r.moved[i][40 * 96 + 48],
              r.burst.frames[i][static_cast<std::size_t>((40 + iy) * 96 + 48 + ix)]);

    // Trusted are pixels that the frame covers, and most of those.
    const cv::Mat_<char> mask(72, 96, r.burst.masks[i].data());
    const cv::Rect covered(std::max(0, -ix), std::max(0, -iy), 96 - std::abs(ix), 72 - std::abs(iy));
    EXPECT_EQ(cv::countNonZero(mask), cv::countNonZero(mask(covered))) << i;
    EXPECT_GT(cv::countNonZero(mask), 0.6 * covered.area()) << i;
  }
  EXPECT_EQ(registration.getCompleteShifts()[0], Shift(0, 0));
  EXPECT_EQ(std::count(r.burst.masks[0].begin(), r.burst.masks[0].end(), 1), 96 * 72);
}

TEST(SrFloatRegistration1Test, WholePixelShiftsWrapAround) {
  constexpr int width = 64;
  constexpr int height = 48;
  SyntheticBurst burst = makeBurst({width, height, {{0, 0}, {0, 0}}});
  const auto shiftOf = [&](int dx, int dy) {
    burst.frames[1] = rolled(burst.frames[0], width, height, dx, dy);
    SrFloatRegistration1 registration(width, height, 2);
    auto frames = burst.framePointers();
    registration.prepareFrame(frames[0]);
    registration.prepareFrame(frames[1]);
    std::vector<Shift> shifts(2);
    registration.registerFrames(2, 0, frames.data(), shifts.data(), burst.maskPointers().data());
    return registration.phaseCorrelation();
  };
  for (const auto& [dx, dy] : {std::pair(0, 0), {5, -3}, {-31, 23}, {32, 24}, {-17, 0}}) {
    EXPECT_EQ(shiftOf(dx, dy), cv::Point_<int>(dx, dy));
  }
  EXPECT_EQ(shiftOf(33, 0), cv::Point_<int>(33 - width, 0));
  EXPECT_EQ(shiftOf(-32, -24), cv::Point_<int>(32, 24));  // exactly half a size is a positive shift
}

TEST(SrFloatRegistration1Test, IdenticalFramesHaveNoShift) {
  Registered r(makeBurst({64, 48, {{0, 0}, {0, 0}}}));
  SrFloatRegistration1 registration(64, 48, 2);
  ASSERT_EQ(r.run(registration, 1), 0);
  EXPECT_EQ(registration.getCompleteShifts()[0], Shift(0, 0));
  EXPECT_EQ(r.moved[0], r.burst.frames[0]);
}

TEST(SrFloatRegistration1Test, ShiftBeyondHalfTheHeightIsTooLarge) {
  // 26 of 96 columns would do, but the height of 48 rows bounds both axes.
  Registered r(makeBurst({96, 48, {{0, 0}, {1.2f, 0}, {0, 0}, {0.3f, 0}}}));
  r.burst.frames[2] = rolled(r.burst.frames[0], 96, 48, -26, 0);
  SrFloatRegistration1 registration(96, 48, 4);
  const std::string location = locationOfLargeDisplacement([&] { r.run(registration); });
  const std::string place = "vision/superresolution/SrFloatRegistration1.cpp: 144: doRegistration(..)\n";
  ASSERT_GE(location.size(), place.size());
  EXPECT_EQ(location.substr(location.size() - place.size()), place);
  EXPECT_NEAR(registration.getCompleteShifts()[1].x, 1.2, 0.05);
  EXPECT_NEAR(r.shifts[1].x, 0.2, 0.05);     // frames before it are done,
  EXPECT_EQ(r.moved[2], r.burst.frames[2]);  // those from it on are copied
  EXPECT_EQ(r.moved[3], r.burst.frames[3]);
}

TEST(SrFloatRegistration1Test, FramesWithoutShiftEndInTheSameException) {
  const auto run = [](const std::function<void(std::vector<Image>&)>& spoil) {
    Registered r(makeBurst({48, 40, {{0, 0}, {0.4f, 0}}}));
    spoil(r.burst.frames);
    SrFloatRegistration1 registration(48, 40, 2);
    locationOfLargeDisplacement([&] { r.run(registration); });
    EXPECT_EQ(std::count(r.burst.masks[1].begin(), r.burst.masks[1].end(), 1), 0);
  };
  run([](auto& frames) { std::fill(frames[0].begin(), frames[0].end(), 300.0f); });
  run([](auto& frames) { frames[0][100] = nan; });
  run([](auto& frames) { frames[1][100] = nan; });
  run([](auto& frames) { frames[1][100] = std::numeric_limits<float>::infinity(); });
  run([](auto& frames) { frames[1][100] = 3e38f; });
}

TEST(SrFloatRegistration1Test, ConstantFrameStartsFromNoShift) {
  Registered r(makeBurst({48, 40, {{0, 0}, {0, 0}}}));
  std::fill(r.burst.frames[1].begin(), r.burst.frames[1].end(), 300.0f);
  SrFloatRegistration1 registration(48, 40, 2);
  auto frames = r.burst.framePointers();
  registration.prepareFrame(frames[0]);
  registration.prepareFrame(frames[1]);
  std::vector<Shift> shifts(2);
  registration.registerFrames(2, 0, frames.data(), shifts.data(), r.burst.maskPointers().data());
  EXPECT_EQ(registration.phaseCorrelation(), cv::Point_<int>(0, 0));
  EXPECT_TRUE(std::isfinite(shifts[1].x) && std::isfinite(shifts[1].y));
}

TEST(SrFloatRegistration1Test, HoldsTheLastFrames) {
  const SyntheticBurst burst =
      makeBurst({48, 40, {{0, 0}, {2.1f, 0.4f}, {-3.3f, 1.2f}, {0.7f, -4.6f}, {5.2f, 3.1f}}});
  Registered last(burst);
  last.burst.frames.erase(last.burst.frames.begin(), last.burst.frames.begin() + 2);
  Registered again = last;

  SrFloatRegistration1 fresh(48, 40, 3);
  ASSERT_EQ(last.run(fresh), 0);
  SrFloatRegistration1 used(48, 40, 3);
  for (Image frame : burst.frames) {
    used.prepareFrame(frame.data());
  }
  ASSERT_EQ(again.registerHeld(used), 0);
  EXPECT_EQ(used.getCompleteShifts(), fresh.getCompleteShifts());
  EXPECT_EQ(again.moved, last.moved);
  EXPECT_EQ(again.burst.masks, last.burst.masks);

  used.clearFrames();
  EXPECT_TRUE(used.getCompleteShifts().empty());
  EXPECT_EQ(again.registerHeld(used), SrFloatRegistration1::noFrames);
  EXPECT_EQ(again.shifts[0], Shift(9, 9));
  EXPECT_EQ(again.run(used), 0);
  EXPECT_EQ(used.getCompleteShifts(), fresh.getCompleteShifts());
}

TEST(SrFloatRegistration1Test, RefusesFramesThatItDoesNotHold) {
  Registered r(makeBurst({48, 40, {{0, 0}, {2.1f, 0.4f}}}));
  SrFloatRegistration1 registration(48, 40, 3);
  EXPECT_EQ(registration.doRegistration(0, 0, nullptr, nullptr, nullptr, nullptr), -9);
  registration.prepareFrame(r.burst.frames[0].data());
  EXPECT_THROW(registration.prepareFrame(nullptr), Exception);
  EXPECT_EQ(r.registerHeld(registration), -9);  // two of one
  registration.prepareFrame(r.burst.frames[1].data());
  EXPECT_EQ(r.registerHeld(registration, 2), -9);
  EXPECT_EQ(r.registerHeld(registration, -1), -9);
  EXPECT_EQ(r.registerHeld(registration, 1), 0);
}

TEST(SrFloatRegistration1Test, SizesAndRadiusMustFit) {
  EXPECT_THROW(SrFloatRegistration1(-1, 40, 5), std::bad_array_new_length);
  EXPECT_THROW(SrFloatRegistration1(48, 40, -1), std::bad_array_new_length);
  EXPECT_THROW(SrFloatRegistration1(40, 10, 5), Exception);
  SrFloatRegistration1 registration(40, 11, 2);
  EXPECT_EQ(registration.getGaussRadius(), 5);
  for (const int radius : {-1, 6, std::numeric_limits<int>::max()}) {
    EXPECT_THROW(registration.setGaussRadius(radius), Exception);
  }
  EXPECT_EQ(registration.getGaussRadius(), 5);

  // Without blur, frames that are equal but for a whole-pixel shift stay so.
  registration.setGaussRadius(0);
  Registered r(makeBurst({40, 11, {{0, 0}, {0, 0}}}));
  r.burst.frames[1] = rolled(r.burst.frames[0], 40, 11, 3, -2);
  ASSERT_EQ(r.run(registration), 0);
  EXPECT_NEAR(registration.getCompleteShifts()[1].x, 3, 1e-3);
  EXPECT_NEAR(registration.getCompleteShifts()[1].y, -2, 1e-3);
}

TEST(SrFloatRegistration1Test, SameBitsOnEveryInstructionSet) {
  std::vector<std::vector<Shift>> shifts;
  std::vector<std::vector<test::Mask>> masks;
  onEveryInstructionSet([&] {
    Registered r(makeBurst({53, 41, {{0, 0}, {2.1f, 0.4f}, {-3.3f, 1.2f}}}));
    SrFloatRegistration1 registration(53, 41, 3);
    ASSERT_EQ(r.run(registration), 0);
    shifts.push_back(registration.getCompleteShifts());
    masks.push_back(r.burst.masks);
  });
  for (std::size_t i = 1; i < shifts.size(); ++i) {
    EXPECT_EQ(shifts[i], shifts[0]);
    EXPECT_EQ(masks[i], masks[0]);
  }
}

TEST(SrFloatRegistration1Test, EngineKeepsItsStoresInStep) {
  SyntheticBurst burst = makeBurst({48, 40});
  SrFloat<SrFloatRegistration1> engine(48, 40, 5, 2);
  Image image(static_cast<std::size_t>(engine.getOutputSize()));
  EXPECT_EQ(engine.computeSR(image.data()), -998.0f);
  const auto compute = [&] {
    for (const Image& frame : burst.frames) {
      engine.addFrame(frame.data());
    }
    return engine.computeSR(image.data());
  };
  const float first = compute();
  EXPECT_GT(first, 0.75f);
  const Image firstImage = image;

  engine.clearFrames();
  std::vector<Shift> shifts(1);
  engine.getCompleteShifts(shifts);
  EXPECT_TRUE(shifts.empty());
  EXPECT_EQ(engine.computeSR(image.data()), -998.0f);

  Image broken(48 * 40, nan);
  EXPECT_THROW(engine.addFrame(broken.data()),
               Exception);  // too many defects: counted, and a spectrum is held
  EXPECT_EQ(compute(), first);
  EXPECT_EQ(image, firstImage);
}

/// Both registrations measure the same thing by different means; on real frames, which also turn a little and hold
/// noise, they differ by less than this part of a pixel. Left out are frames farther away whose highest peak is that of
/// the sensor's fixed pattern, which does not move with the scene.
TEST(SrFloatRegistration1Test, AgreesWithCornersOnRealBursts) {
  constexpr double tolerance = 0.1;
  const std::pair<const char*, std::vector<int>> bursts[] = {{"van_320x240", {3, 0, 1, 2, 4}},
                                                             {"ground_crosses_382x288", {3, 1, 2}},
                                                             {"street_640x480", {3, 0, 1, 2, 4}}};
  for (const auto& [name, numbers] : bursts) {
    SCOPED_TRACE(name);
    Registered byPhase(test::readRealBurst(name, numbers));
    if (byPhase.burst.frames.empty()) {
      GTEST_SKIP() << "no burst " << name << " in " << test::realBurstFolder();
    }
    Registered byCorners = byPhase;
    const int count = static_cast<int>(numbers.size());
    SrFloatRegistration1 phase(byPhase.burst.width, byPhase.burst.height, count);
    SrFloatRegistration2 corners(byPhase.burst.width, byPhase.burst.height, count);
    ASSERT_EQ(byPhase.run(phase), 0);
    ASSERT_EQ(byCorners.run(corners), 0);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      const Shift difference = phase.getCompleteShifts()[i] - corners.getCompleteShifts()[i];
      EXPECT_NEAR(difference.x, 0, tolerance) << "frame " << numbers[i];
      EXPECT_NEAR(difference.y, 0, tolerance) << "frame " << numbers[i];
    }
  }
}

}  // namespace
}  // namespace movra::vision
