#include "vision/superresolution/shared/CornerRegistration.h"

#include <functional>

#include "tests/plain/PlainRegistration.h"
#include "tests/support/RegistrationRun.h"
#include "tests/support/Test.h"
#include "vision/superresolution/SrFloatRegistration2.h"
#include "vision/superresolution/detail/registration/WholePixelMove.h"

namespace movra::vision {
namespace {

using namespace movra::test;

using Scene = std::function<double(double, double)>;

constexpr int width = 160;
constexpr int height = 120;
constexpr int pixels = width * height;

Image frameOf(const Scene& scene, Shift shift) {
  Image frame;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      frame.push_back(static_cast<float>(scene(x - static_cast<double>(shift.x), y - static_cast<double>(shift.y))));
    }
  return frame;
}

double textured(double x, double y) {
  return sceneTemperature(2 * x, 2 * y);
}

// The scene, which fades into a constant before the border: the blur mirrors what lies there, and so moves it too
// little.
Scene faded() {
  return [](double x, double y) {
    const double u = 2 * x / width - 1;
    const double v = 2 * y / height - 1;
    const double fade = std::max(0.0, 1 - 1.3 * u * u) * std::max(0.0, 1 - 1.3 * v * v);
    return 300 + fade * fade * (textured(x, y) - 300);
  };
}

template <class Registration>
struct BurstOf : RegistrationRun<Registration> {
  explicit BurstOf(int slots = 5) : RegistrationRun<Registration>(width, height, slots) {}

  void prepareScene(const Scene& scene, const std::vector<Shift>& shifts) {
    for (const Shift shift : shifts) {
      this->prepare(frameOf(scene, shift));
    }
  }
};

using Burst = BurstOf<SrFloatRegistration2>;

class CornerRegistrationTest : public ::testing::Test {
 protected:
  void SetUp() override { cv::setNumThreads(1); }
};

TEST_F(CornerRegistrationTest, RecoversShiftsAndMasksWhatMovesAndWhatTheFrameDoesNotShow) {
  const cv::Rect mover(70, 50, 14, 12);
  Burst burst;
  burst.prepareScene(faded(), {{0, 0}, {4.2f, -3.3f}});
  Image frame = frameOf(faded(), {0.3f, 0.4f});
  for (int i = 0; i < pixels; ++i) {
    frame[i] += mover.contains({i % width, i / width}) ? 2.0f : 0.0f;
  }
  burst.prepare(frame);
  ASSERT_EQ(burst.run(0), 0);
  EXPECT_LT(cv::norm(burst.registration.getCompleteShifts()[1] - Shift(4.2f, -3.3f)), 0.02);
  EXPECT_LT(cv::norm(burst.shifts[1] - Shift(0.2f, -0.3f)), 0.02);
  EXPECT_EQ(burst.shifts[0], Shift(0, 0));
  EXPECT_EQ(burst.masks[0], Mask(pixels, 1));
  EXPECT_EQ(burst.shifted[0], burst.frames[0]);

  const cv::Rect covered(0, 3, width - 4, height - 3);
  const cv::Rect disturbed(mover.tl() - cv::Point(10, 10), mover.br() + cv::Point(10, 10));
  const cv::Point corner = mover.tl();  // the edge is what does not fit
  for (int i = 0; i < pixels; ++i) {
    const cv::Point place(i % width, i / width);
    EXPECT_EQ(burst.masks[1][i], covered.contains(place) ? 1 : 0) << place;
    EXPECT_TRUE(disturbed.contains(place) || burst.masks[2][i] == 1) << place;
  }
  EXPECT_EQ(burst.masks[2][corner.y * width + corner.x], 0);
  EXPECT_EQ(burst.masks[3], Mask(pixels, 0));  // a slot without a frame
}

TEST_F(CornerRegistrationTest, ReportsFramesWithoutCommonTracks) {
  const auto expectNoTrack = [](const Image& reference, const Image& frame) {
    Burst burst;
    burst.prepare(reference);
    burst.prepare(frame);
    EXPECT_EQ(burst.run(0), -9);
    EXPECT_EQ(burst.masks[0], Mask(pixels, 1));
    EXPECT_EQ(burst.shifts, (std::vector<Shift>{{0, 0}, {-1, -1}}));
    EXPECT_EQ(burst.shifted[1], Image(pixels, -1));
  };
  expectNoTrack(Image(pixels, 25), frameOf(textured, {0, 0}));

  // Two equal blobs part in opposite directions: the medians of x and y come from different ones, and neither fits both.
  const auto blob = [](double x, double y) { return std::exp(-(x * x + y * y) / 18); };
  const auto blobs = [blob](double apart) {
    return [=](double x, double y) {
      return blob(x - 40 - apart, y - 60 + apart) + blob(x - 120 + apart, y - 60 - apart);
    };
  };
  expectNoTrack(frameOf(blobs(0), {0, 0}), frameOf(blobs(4), {0, 0}));
}

TEST_F(CornerRegistrationTest, AReferenceAloneNeedsNoCorners) {
  Burst burst;
  burst.prepare(Image(pixels, 25));
  EXPECT_EQ(burst.run(), 0);
  EXPECT_EQ(burst.shifts[0], Shift(0, 0));
  EXPECT_EQ(burst.masks[0], Mask(pixels, 1));
  EXPECT_EQ(burst.shifted[0], burst.frames[0]);

  // A reference that comes before the frame that fails has its shift; the frame before both is as it was.
  burst.prepareScene(textured, {{0, 0}, {1, 1}});
  burst.prepare(Image(pixels, 25));
  EXPECT_EQ(burst.run(2), -9);
  EXPECT_EQ(burst.shifts, std::vector<Shift>(4, Shift(-1, -1)));
  burst.registration.clearFrames();
  burst.frames.clear();
  burst.prepareScene(textured, {{0, 0}, {1, 1}});
  burst.prepare(Image(pixels, 25));
  EXPECT_EQ(burst.run(1), -9);
  EXPECT_EQ(burst.shifts, (std::vector<Shift>{{-1, -1}, {0, 0}, {-1, -1}}));

  cv::Mat_<float> none;
  EXPECT_NO_THROW(burst.registration.extractCornersRefImage(none));
  cv::Point_<int> coarse(7, 7);
  EXPECT_EQ(burst.registration.registerWithCorners(0, 1, coarse), -9);
}

TEST_F(CornerRegistrationTest, AFrameThatDoesNotFitThrowsAfterTheOnesBeforeIt) {
  Burst burst, broken;
  burst.prepareScene(textured, {{1.2f, 0}, {0, 0}, {-2, 1}, {1, 1}});
  ASSERT_EQ(burst.run(1), 0);
  std::vector<Image> frames = burst.frames;
  frames[2][pixels / 2] = notANumber;
  broken.prepareAll(frames);
  const std::string place = "vision/superresolution/SrFloatRegistration2.cpp: 174: doRegistration(..)\n";
  EXPECT_EQ(endOfLocationThrownBy([&] { broken.run(1); }, place.size()), place);
  EXPECT_EQ(broken.shifted[0], burst.shifted[0]);
  EXPECT_EQ(broken.shifts[0], burst.shifts[0]);
  EXPECT_EQ(broken.masks[2], Mask(pixels, 0));
  EXPECT_EQ(broken.shifted[3], broken.frames[3]);  // copied, not moved
  EXPECT_EQ(broken.shifts[3], burst.registration.getCompleteShifts()[3]);

  broken.prepareAll(std::vector<Image>(4, frames[1]));
  EXPECT_EQ(broken.run(4), 0);  // the frame has left
}

TEST_F(CornerRegistrationTest, BoundsBothAxesByHalfTheHeight) {
  constexpr int w = 50, h = 13;
  Image frame = randomImage(w * h, 1, 2, 5);
  const auto trial = [&](Shift shift) {
    Image moved(w * h);
    std::vector<Shift> complete;
    float* source = frame.data();
    float* target = moved.data();
    const bool within = detail::splitShifts(1, w, h, &source, &shift, &target, complete);
    return std::pair(within, complete.at(0));
  };
  const float limit = 6;
  const float below = std::nextafter(limit, 0.0f);
  EXPECT_EQ(trial({below, -below}), std::pair(true, Shift(below, -below)));
  for (const float beyond : {limit, -limit, notANumber}) {
    EXPECT_FALSE(trial({beyond, 0}).first) << beyond;
    EXPECT_FALSE(trial({0, beyond}).first) << beyond;
  }
}

TEST_F(CornerRegistrationTest, MovesFramesAsFlatArrays) {
  constexpr int w = 7, h = 5;
  SrFloatRegistration2 registration(w, h, 1);
  Image frame = randomImage(w * h, 1, 2, 6);
  for (const auto& [before, offset, fraction] : {std::tuple(Shift(0.5f, -0.5f), 1, Shift(-0.5f, -0.5f)),
                                                 {{-1.25f, 0}, -1, {-0.25f, 0}},
                                                 {{2.25f, -1.75f}, 2 - 2 * w, {0.25f, 0.25f}},
                                                 {{0, 5}, w * h, {0, 0}},
                                                 {{3e9f, 1e38f}, w * h, {3e9f - 1073741824.0f, 1e38f}},
                                                 {{0, -infinity}, -w * h, {0, -infinity}}}) {
    Shift shift = before;
    Image moved(frame.size(), -1);
    registration.shiftFrame(frame.data(), shift, moved.data());
    EXPECT_EQ(shift, fraction) << before;
    for (int k = 0; k < w * h; ++k) {
      const int from = k + offset;
      EXPECT_EQ(moved[k], 0 <= from && from < w * h ? frame[from] : 0.0f) << before << " at " << k;
    }
  }
}

TEST_F(CornerRegistrationTest, EqualsThePlainLoopsOnEveryInstructionSet) {
  if (!openCvFuses()) {
    GTEST_SKIP() << "OpenCV rounds otherwise on this processor";
  }
  const auto run = [](auto& burst) {
    burst.prepareScene(textured, {{0.3f, 1.8f}, {0, 0}, {-9.4f, -6.7f}, {11.1f, -8.2f}});
    burst.registration.setRegError(3e-8f);  // masks with both values
    ASSERT_EQ(burst.run(1), 0);
  };
  BurstOf<PlainRegistration> expected(4);
  run(expected);
  EXPECT_NE(std::count(expected.masks[0].begin(), expected.masks[0].end(), 1), 0);
  EXPECT_NE(std::count(expected.masks[0].begin(), expected.masks[0].end(), 0), 0);
  onEveryInstructionSet([&] {
    Burst burst(4);
    run(burst);
    EXPECT_EQ(burst.shifts, expected.shifts);
    EXPECT_EQ(burst.shifted, expected.shifted);
    EXPECT_EQ(burst.masks, expected.masks);
  });
}

TEST_F(CornerRegistrationTest, RejectsImpossibleSizesAndMissingFrames) {
  EXPECT_THROW(SrFloatRegistration2(-1, 4, 2), std::bad_array_new_length);
  Burst burst(3);
  EXPECT_THROW(burst.registration.prepareFrame(nullptr), Exception);
  burst.prepareScene(textured, {{0, 0}, {1, 1}, {2, 0}});
  ASSERT_EQ(burst.run(), 0);
  const std::vector<Shift> before = burst.registration.getCompleteShifts();
  burst.registration.clearFrames();
  EXPECT_EQ(burst.registration.getCompleteShifts(), before);  // until the next registration
  burst.registration.prepareFrame(burst.frames[0].data());
  EXPECT_EQ(burst.run(), -9);  // one frame held, three asked for
}

}  // namespace
}  // namespace movra::vision
