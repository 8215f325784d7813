#include "vision/superresolution/CornerRegistration.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "benchmarks/straight/StraightRegistration.h"
#include "movra/Exception.h"
#include "tests/support/InstructionSetGuard.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/SrFloatRegistration2.h"
#include "vision/superresolution/detail/WholePixelMove.h"

namespace movra::vision {
namespace {

using test::Image;
using test::Mask;
using test::Shift;

using Scene = std::function<double(double, double)>;

constexpr int width = 160;
constexpr int height = 120;
constexpr int pixels = width * height;

Image frameOf(const Scene& scene, Shift shift) {
  Image frame;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      frame.push_back(
          static_cast<float>(scene(x - static_cast<double>(shift.x), y - static_cast<double>(shift.y))));
    }
  }
  return frame;
}

double blob(double x, double y, double radius) {
  return std::exp(-(x * x + y * y) / (2 * radius * radius));
}

double smooth(double x, double y) {
  return 300 + 9 * blob(x - 61, y - 47, 6) - 7 * blob(x - 97, y - 52, 8) + 5 * blob(x - 73, y - 76, 5) +
         8 * blob(x - 106, y - 79, 7) - 4 * blob(x - 49, y - 72, 9);
}

// Periods from 14 pixels on: the central difference makes the gradient of shorter ones too small by more than 0.02 / 0.5.
double bandlimited(double x, double y) {
  return 300 + std::sin(0.39 * x + 0.23 * y) + std::cos(0.17 * x - 0.42 * y) +
         2 * std::sin(0.09 * x + 0.31 * y) + std::cos(0.24 * x + 0.35 * y);
}

double textured(double x, double y) {
  return test::sceneTemperature(2 * x, 2 * y);
}

// The scene, which fades into a constant before the border: the blur mirrors what lies there, and so moves it too
// little.
Scene faded(const Scene& scene) {
  return [=](double x, double y) {
    const double u = 2 * x / width - 1;
    const double v = 2 * y / height - 1;
    const double fade = std::max(0.0, 1 - 1.3 * u * u) * std::max(0.0, 1 - 1.3 * v * v);
    return 300 + fade * fade * (scene(x, y) - 300);
  };
}

// A registration with the buffers that its caller owns.
template <class Registration>
struct BurstOf {
  explicit BurstOf(int slots = 5) : registration(width, height, slots), masks(slots, Mask(pixels, 7)) {}

  void prepare(Image frame) {
    registration.prepareFrame(frame.data());
    if (frames.size() == masks.size()) {
      frames.erase(frames.begin());
    }
    frames.push_back(std::move(frame));
  }

  int run(int reference) {
    shifted.assign(frames.size(), Image(pixels, -1));
    shifts.assign(frames.size(), Shift(-1, -1));
    const auto pointers = [](auto& images) {
      std::vector<decltype(images[0].data())> result;
      for (auto& image : images) {
        result.push_back(image.data());
      }
      return result;
    };
    return registration.doRegistration(static_cast<int>(frames.size()), reference, pointers(frames).data(),
                                       shifts.data(), pointers(masks).data(), pointers(shifted).data());
  }

  Registration registration;
  std::vector<Image> frames, shifted;
  std::vector<Shift> shifts;
  std::vector<Mask> masks;
};

using Burst = BurstOf<SrFloatRegistration2>;

class CornerRegistrationTest : public ::testing::Test {
 protected:
  void SetUp() override { cv::setNumThreads(1); }
};

TEST_F(CornerRegistrationTest, RecoversKnownShifts) {
  const std::vector<Shift> truth{{0.3f, -0.2f},  {2.4f, -1.3f}, {0, 0},
                                 {-3.45f, 2.2f}, {1, -1},       {-0.5f, 0.5f}};
  constexpr int reference = 2;
  for (const auto& [scene, name] :
       {std::pair(Scene(smooth), "smooth"), std::pair(faded(bandlimited), "bandlimited"),
        std::pair(faded(textured), "textured")}) {
    Burst burst(static_cast<int>(truth.size()));
    for (const Shift shift : truth) {
      burst.prepare(frameOf(scene, shift));
    }
    ASSERT_EQ(burst.run(reference), 0);
    for (std::size_t i = 0; i < truth.size(); ++i) {
      SCOPED_TRACE(::testing::Message() << name << ", frame " << i);
      const Shift complete = burst.registration.getCompleteShifts()[i];
      EXPECT_NEAR(complete.x, truth[i].x, 0.02);
      EXPECT_NEAR(complete.y, truth[i].y, 0.02);
      EXPECT_LE(std::max(std::abs(burst.shifts[i].x), std::abs(burst.shifts[i].y)), 0.5f);
      EXPECT_EQ(burst.shifts[i],
                complete - Shift(std::floor(complete.x + 0.5f), std::floor(complete.y + 0.5f)));
    }
    EXPECT_EQ(burst.shifts[reference], Shift(0, 0));
    EXPECT_EQ(burst.masks[reference], Mask(pixels, 1));
    EXPECT_EQ(burst.shifted[reference], burst.frames[reference]);
  }
}

TEST_F(CornerRegistrationTest, MasksWhatMovesAndWhatTheFrameDoesNotShow) {
  const cv::Rect mover(70, 50, 14, 12);
  Burst burst;
  burst.prepare(frameOf(faded(textured), {0, 0}));
  burst.prepare(frameOf(faded(textured), {4.2f, -3.3f}));
  Image frame = frameOf(faded(textured), {0.3f, 0.4f});
  for (int i = 0; i < pixels; ++i) {
    frame[i] += mover.contains({i % width, i / width}) ? 2.0f : 0.0f;
  }
  burst.prepare(frame);
  ASSERT_EQ(burst.run(0), 0);

  const cv::Rect covered(0, 3, width - 4, height - 3);
  const cv::Rect disturbed(mover.tl() - cv::Point(10, 10), mover.br() + cv::Point(10, 10));
  const cv::Point corner = mover.tl();  // the edge is what does not fit
  for (int i = 0; i < pixels; ++i) {
    const cv::Point place(i % width, i / width);
    EXPECT_EQ(burst.masks[1][i], covered.contains(place) ? 1 : 0) << place;
    if (!disturbed.contains(place)) {
      EXPECT_EQ(burst.masks[2][i], 1) << place;
    }
  }
  EXPECT_EQ(burst.masks[2][corner.y * width + corner.x], 0);
  EXPECT_EQ(burst.masks[3], Mask(pixels, 0));  // a slot without a frame
}

TEST_F(CornerRegistrationTest, HoldsTheNewestFramesInOrder) {
  Burst burst(3);
  EXPECT_EQ(burst.run(0), -9);
  const std::vector<Shift> truth{{3, 3}, {-2.3f, 1.2f}, {0, 0}, {1.4f, -0.6f}, {-1.1f, -2.2f}};
  for (const Shift shift : truth) {
    burst.prepare(frameOf(faded(textured), shift));
  }
  ASSERT_EQ(burst.run(0), 0);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(burst.registration.getCompleteShifts()[i].x, truth[i + 2].x, 0.02);
    EXPECT_NEAR(burst.registration.getCompleteShifts()[i].y, truth[i + 2].y, 0.02);
  }
  burst.registration.clearFrames();
  EXPECT_TRUE(burst.registration.getCompleteShifts().empty());
  burst.registration.prepareFrame(burst.frames[0].data());
  EXPECT_EQ(burst.run(0), -9);  // one frame held, three asked for
}

TEST_F(CornerRegistrationTest, ReportsFramesWithoutCommonTracks) {
  const auto expectNoTrack = [](const Image& reference, const Image& frame) {
    Burst burst;
    burst.prepare(reference);
    burst.prepare(frame);
    EXPECT_EQ(burst.run(0), -9);
    EXPECT_EQ(burst.masks[0], Mask(pixels, 1));
    EXPECT_EQ(burst.shifts, std::vector<Shift>(2, Shift(-1, -1)));
    EXPECT_EQ(burst.shifted[1], Image(pixels, -1));
  };
  expectNoTrack(Image(pixels, 25), frameOf(smooth, {0, 0}));

  // Two equal blobs part in opposite directions: the medians of x and y come from different ones, and neither fits both.
  const auto blobs = [](double apart) {
    return frameOf(
        [=](double x, double y) {
          return blob(x - 40 - apart, y - 60 + apart, 3) + blob(x - 120 + apart, y - 60 - apart, 3);
        },
        {0, 0});
  };
  expectNoTrack(blobs(0), blobs(4));

  // A frame without any structure is refused one way or the other.
  Burst burst;
  burst.prepare(frameOf(smooth, {0, 0}));
  burst.prepare(Image(pixels, 25));
  try {
    burst.run(0);
  } catch (const Exception& e) {
    EXPECT_STREQ(e.what(), "Too large displacement");
  }
}

TEST_F(CornerRegistrationTest, AFrameThatDoesNotFitThrowsAfterTheOnesBeforeIt) {
  Burst burst;
  for (const Shift shift : {Shift(1.2f, 0), Shift(0, 0), Shift(-2, 1), Shift(1, 1)}) {
    burst.prepare(frameOf(textured, shift));
  }
  Image holed = burst.frames[2];
  holed[pixels / 2] = std::numeric_limits<float>::quiet_NaN();
  Burst broken;
  for (const std::size_t i : {0u, 1u, 2u, 3u}) {
    broken.prepare(i == 2 ? holed : burst.frames[i]);
  }
  ASSERT_EQ(burst.run(1), 0);
  try {
    broken.run(1);
    FAIL() << "no exception";
  } catch (const Exception& e) {
    EXPECT_STREQ(e.what(), "Too large displacement");
    const std::string end = "vision/superresolution/SrFloatRegistration2.cpp: 174: doRegistration(..)\n";
    ASSERT_GE(e.location().size(), end.size());
    EXPECT_EQ(e.location().substr(e.location().size() - end.size()), end);
  }
  EXPECT_EQ(broken.shifted[0], burst.shifted[0]);
  EXPECT_EQ(broken.shifts[0], burst.shifts[0]);
  EXPECT_EQ(broken.masks[2], Mask(pixels, 0));
  EXPECT_EQ(broken.shifted[3], broken.frames[3]);  // copied, not moved
  EXPECT_EQ(broken.shifts[3], burst.registration.getCompleteShifts()[3]);

  for (int i = 0; i < 4; ++i) {
    broken.prepare(burst.frames[1]);
  }
  EXPECT_EQ(broken.run(4), 0);  // the frame has left
}

TEST_F(CornerRegistrationTest, BoundsBothAxesByHalfTheHeight) {
  constexpr int w = 50;
  constexpr int h = 13;
  Image frame = test::randomImage(w * h, 1, 2, 5);
  const auto trial = [&](Shift shift) {
    Image moved(w * h);
    std::vector<Shift> complete;
    float* source = frame.data();
    float* target = moved.data();
    detail::splitShifts(1, w, h, &source, &shift, &target, complete, "", 0);
    return complete.at(0);
  };
  const float limit = 6;
  const float below = std::nextafter(limit, 0.0f);
  for (const Shift within : {Shift(below, -below), Shift(-below, below)}) {
    EXPECT_EQ(trial(within), within);
  }
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  for (const float beyond : {limit, -limit, 1e30f, infinity, -infinity, nan}) {
    EXPECT_THROW(trial({beyond, 0}), Exception) << beyond;
    EXPECT_THROW(trial({0, beyond}), Exception) << beyond;
  }
}

TEST_F(CornerRegistrationTest, MovesFramesAsFlatArrays) {
  constexpr int w = 7;
  constexpr int h = 5;
  SrFloatRegistration2 registration(w, h, 1);
  Image frame = test::randomImage(w * h, 1, 2, 6);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    Shift shift;
    int offset;
    Shift fraction;
  };
  for (const Case& c : {Case{{0.5f, -0.5f}, 1, {-0.5f, -0.5f}}, Case{{-0.5f, 0.25f}, 0, {-0.5f, 0.25f}},
                        Case{{-1.25f, 0}, -1, {-0.25f, 0}}, Case{{2.25f, -1.75f}, 2 - 2 * w, {0.25f, 0.25f}},
                        Case{{0, 5}, w * h, {0, 0}}, Case{{-9, -9}, -w * h, {0, 0}},
                        Case{{3e9f, 1e38f}, w * h, {3e9f - 1073741824.0f, 1e38f}},
                        Case{{0, -std::numeric_limits<float>::infinity()}, -w * h, {0, -INFINITY}}}) {
    Shift shift = c.shift;
    Image moved(frame.size(), -1);
    registration.shiftFrame(frame.data(), shift, moved.data());
    EXPECT_EQ(shift, c.fraction) << c.shift;
    for (int k = 0; k < w * h; ++k) {
      const int from = k + c.offset;
      EXPECT_EQ(moved[k], 0 <= from && from < w * h ? frame[from] : 0.0f) << c.shift << " at " << k;
    }
  }
  Shift shift(nan, nan);
  Image moved(frame.size());
  registration.shiftFrame(frame.data(), shift, moved.data());
  EXPECT_EQ(moved, frame);
}

TEST_F(CornerRegistrationTest, EqualsTheStraightLoopsOnEveryInstructionSet) {
  const auto run = [](auto& burst) {
    for (const Shift shift : {Shift(0.3f, 1.8f), Shift(0, 0), Shift(-3.4f, -0.7f), Shift(0.1f, 0.2f)}) {
      burst.prepare(frameOf(textured, shift));
    }
    burst.registration.setRegError(3e-8f);  // masks with both values
    ASSERT_EQ(burst.run(1), 0);
  };
  BurstOf<test::StraightRegistration> expected(4);
  run(expected);
  EXPECT_NE(std::count(expected.masks[0].begin(), expected.masks[0].end(), 1), 0);
  EXPECT_NE(std::count(expected.masks[0].begin(), expected.masks[0].end(), 0), 0);
  test::onEveryInstructionSet([&] {
    Burst burst(4);
    run(burst);
    EXPECT_EQ(burst.shifts, expected.shifts);
    EXPECT_EQ(burst.shifted, expected.shifted);
    EXPECT_EQ(burst.masks, expected.masks);
  });
}

TEST_F(CornerRegistrationTest, RefusesWhatCannotBe) {
  EXPECT_THROW(SrFloatRegistration2(-1, 4, 2), std::bad_array_new_length);
  EXPECT_THROW(SrFloatRegistration2(4, 4, -2), std::bad_array_new_length);
  EXPECT_THROW(SrFloatRegistration2(65536, 65536, 2), std::bad_array_new_length);
  Burst burst;
  EXPECT_THROW(burst.registration.prepareFrame(nullptr), Exception);
  EXPECT_EQ(burst.registration.doRegistration(1, 0, nullptr, nullptr, nullptr, nullptr),
            -9);  // still no frame
  SrFloatRegistration2 empty(0, 9, 2);
  float nothing = 0;
  empty.prepareFrame(&nothing);
  EXPECT_EQ(empty.doRegistration(1, 0, nullptr, nullptr, nullptr, nullptr), -9);
}

}  // namespace
}  // namespace movra::vision
