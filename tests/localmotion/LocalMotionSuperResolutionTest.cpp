#include "vision/superresolution/LocalMotionSuperResolution.h"

#include <atomic>
#include <thread>

#include "tests/localmotion/MovingBurst.h"
#include "tests/support/Test.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

constexpr int width = 112;
constexpr int height = 96;
const Motion still = [](cv::Point2d p) { return p; };
const std::vector<cv::Point2d> places{{0, 0}, {0.55, -1.3}, {-2.2, 0.4}, {1.4, 2.1}, {-0.75, -0.85}};

LocalMotionOptions againstFirst() {
  LocalMotionOptions options;
  options.reference = 0;
  return options;
}

LocalMotionResult reconstruct(const SyntheticBurst& burst, const LocalMotionOptions& options = againstFirst()) {
  LocalMotionSuperResolution reconstruction(burst.width, burst.height, options);
  for (const Image& frame : burst.frames) {
    reconstruction.addFrame(frame.data());
  }
  return reconstruction.computeSR();
}

Image imageOf(const LocalMotionResult& result) {
  return result.image.empty() ? Image() : Image(result.image.begin(), result.image.end());
}

bool isFinite(const LocalMotionResult& result) {
  for (const float value : result.image) {
    if (!std::isfinite(value)) {
      return false;
    }
  }
  return !result.image.empty();
}

/// Every other frame turned to the other side.
SyntheticBurst rolledBurst(double degrees) {
  std::vector<Motion> back{still};
  for (std::size_t k = 1; k < places.size(); ++k) {
    back.push_back(inverseOf((k % 2 == 0 ? -1 : 1) * degrees * CV_PI / 180, places[k], width, height));
  }
  return makeMovingBurst(width, height, back);
}

/// The right half is nearer: frame k sees it moved by another `step[k]` pixels.
SyntheticBurst twoDepths() {
  std::vector<Motion> back;
  for (std::size_t k = 0; k < places.size(); ++k) {
    const double step = k == 0 ? 0 : k % 2 == 0 ? 0.8 : -0.8;
    back.push_back([=](cv::Point2d p) {
      const cv::Point2d far = p - places[k];
      return far.x > width / 2 ? far - cv::Point2d(step, 0) : far;
    });
  }
  return makeMovingBurst(width, height, back);
}

}  // namespace

TEST(LocalMotionSuperResolution, FindsRollAndGainsByItsTiles) {
  const struct {
    double degrees;
    double gain;  // over bicubic enlargement, dB
  } cases[] = {{0, 5.8}, {0.5, 4.4}, {1.5, 2.9}};
  for (const auto& [degrees, least] : cases) {
    SCOPED_TRACE(degrees);
    const SyntheticBurst burst = rolledBurst(degrees);
    const LocalMotionResult result = reconstruct(burst);
    EXPECT_EQ(result.status, LocalMotionStatus::done);
    EXPECT_EQ(result.usedFrames, 5);
    for (std::size_t k = 1; k < places.size(); ++k) {
      const AffineMotion& motion = result.frames[k].motion;
      const double roll = (k % 2 == 0 ? -1 : 1) * degrees * CV_PI / 180;
      EXPECT_NEAR(motion.x, places[k].x, 0.02) << k;
      EXPECT_NEAR(motion.y, places[k].y, 0.02) << k;
      EXPECT_NEAR(0.5 * (motion.yx - motion.xy), std::sin(roll), 5e-4) << k;
      EXPECT_GT(result.frames[k].agreement, 0.9) << k;
      EXPECT_GT(result.frames[k].coverage, 0.85) << k;
    }
    const double gain = gainOverBicubic(imageOf(result), burst, 0);
    EXPECT_GT(gain, least);
    if (degrees > 0) {
      LocalMotionOptions oneTile = againstFirst();
      oneTile.tileCore = 200;
      EXPECT_LT(gainOverBicubic(imageOf(reconstruct(burst, oneTile)), burst, 0), gain - 2);
    }
  }
}

TEST(LocalMotionSuperResolution, FollowsTwoDepths) {
  const SyntheticBurst burst = twoDepths();
  const LocalMotionResult result = reconstruct(burst);
  const ShiftField& field = result.field;
  for (std::size_t k = 1; k < places.size(); ++k) {
    for (const int column : {1, field.columns - 2}) {
      const cv::Point2f found = field.shifts[k][static_cast<std::size_t>(field.rows / 2 * field.columns + column)];
      const double step = column == 1 ? 0 : k % 2 == 0 ? 0.8 : -0.8;
      EXPECT_NEAR(static_cast<double>(found.x), places[k].x + step, 0.2) << k << ", column " << column;
      EXPECT_NEAR(static_cast<double>(found.y), places[k].y, 0.1) << k << ", column " << column;
    }
    EXPECT_GT(result.frames[k].localMotion, 0.02);
  }
  EXPECT_GT(gainOverBicubic(imageOf(result), burst, 0), 3.0);
}

TEST(LocalMotionSuperResolution, GainsWhereEveryBlockSeesTwoDepths) {
  // Twigs in front that move by more than the scene behind them: every block sees both motions.
  const Extra twigs = [](int k, cv::Point2d p) {
    const cv::Point2d d = p - 0.5 * places[static_cast<std::size_t>(k)];
    return std::abs(std::remainder(d.x + 0.3 * d.y, 17)) < 1.5 ? 15.0 : 0.0;
  };
  std::vector<Motion> back;
  for (const cv::Point2d& place : places) {
    back.push_back([place](cv::Point2d p) { return p - place; });
  }
  const SyntheticBurst burst = makeMovingBurst(width, height, back, twigs);
  SyntheticBurst alone = burst;
  alone.frames.resize(1);
  const auto gainOf = [&](const SyntheticBurst& frames) {
    return gainOverBicubic(imageOf(reconstruct(frames)), burst, 0);
  };
  EXPECT_GT(gainOf(burst), gainOf(alone) + 1.9);
}

TEST(LocalMotionSuperResolution, LeavesNoGhostOfSlowMover) {
  // A warm disc that moves by 0.8 pixels from frame to frame, beside what the camera does.
  const Extra disc = [](int k, cv::Point2d p) {
    const double x = p.x - 55 - 0.8 * k, y = p.y - 45;
    return x * x + y * y < 81 ? 6.0 : 0.0;
  };
  std::vector<Motion> back;
  for (const cv::Point2d& place : places) {
    back.push_back([place](cv::Point2d p) { return p - place; });
  }
  const SyntheticBurst burst = makeMovingBurst(width, height, back, disc);
  const auto errorAround = [&](const Image& image) {
    double sum = 0;
    int count = 0;
    for (int y = 60; y < 120; ++y) {
      for (int x = 80; x < 150; ++x, ++count) {
        const std::size_t i = static_cast<std::size_t>(y * 2 * width + x);
        sum += std::pow(static_cast<double>(image[i] - burst.truth[i]), 2);
      }
    }
    return std::sqrt(sum / count);
  };
  SyntheticBurst alone = burst;
  alone.frames.resize(1);
  EXPECT_LT(errorAround(imageOf(reconstruct(burst))), 0.96 * errorAround(imageOf(reconstruct(alone))));
}

TEST(LocalMotionSuperResolution, HasTheSameBitsForAnyThreadsAndInstructions) {
  const SyntheticBurst burst = rolledBurst(0.7);
  const Image expected = imageOf(reconstruct(burst));
  for (const int threads : {1, 2, 5}) {
    LocalMotionOptions options = againstFirst();
    options.runJobs = [=](int jobs, const std::function<void(int)>& job) {
      std::atomic<int> next{jobs};
      std::vector<std::thread> workers;
      for (int i = 0; i < threads; ++i) {
        workers.emplace_back([&] {
          for (int j; (j = --next) >= 0;) {
            job(j);
          }
        });
      }
      for (std::thread& worker : workers) {
        worker.join();
      }
    };
    EXPECT_TRUE(sameBits(imageOf(reconstruct(burst, options)), expected)) << threads;
  }
  onEveryInstructionSet([&] { EXPECT_TRUE(sameBits(imageOf(reconstruct(burst)), expected)); });
}

TEST(LocalMotionSuperResolution, TakesLevelsOut) {
  SyntheticBurst burst = rolledBurst(0.3);
  const double plain = gainOverBicubic(imageOf(reconstruct(burst)), burst, 0);
  for (std::size_t k = 1; k < burst.frames.size(); ++k) {
    for (float& value : burst.frames[k]) {
      value += static_cast<float>(k);
    }
  }
  const LocalMotionResult result = reconstruct(burst);
  EXPECT_NEAR(result.frames[3].offset, 3, 0.05);
  EXPECT_NEAR(gainOverBicubic(imageOf(result), burst, 0), plain, 0.1);
}

TEST(LocalMotionSuperResolution, MasksBadPixels) {
  SyntheticBurst burst = rolledBurst(0.3);
  const double plain = distance(imageOf(reconstruct(burst)), burst.truth, 2 * width, 12);
  std::vector<unsigned char> listed(burst.frames[0].size());
  for (const int place : {20 * width + 30, 50 * width + 70, 51 * width + 70, 80 * width + 40}) {
    listed[static_cast<std::size_t>(place)] = 1;
    for (Image& frame : burst.frames) {
      frame[static_cast<std::size_t>(place)] = 900;
    }
  }
  burst.frames[1][40 * width + 50] = notANumber;
  burst.frames[2][40 * width + 51] = infinity;
  burst.frames[3][40 * width + 52] = 6000;
  burst.frames[4][40 * width + 53] = asFloat(130);  // flagged
  LocalMotionSuperResolution reconstruction(width, height, againstFirst());
  reconstruction.setBadPixels(listed.data());
  for (const Image& frame : burst.frames) {
    reconstruction.addFrame(frame.data());
  }
  const LocalMotionResult result = reconstruction.computeSR();
  EXPECT_LT(distance(imageOf(result), burst.truth, 2 * width, 12), 1.05 * plain);
  EXPECT_LT(result.coverage(20, 30), 5);
  EXPECT_EQ(result.coverage(70, 60), 5);
}

TEST(LocalMotionSuperResolution, TakesNoPartOfAHoleForMotion) {
  for (const std::size_t holed : {0U, 3U}) {  // the reference, or a frame
    SyntheticBurst burst = rolledBurst(0.3);
    const auto motionOfFrame = [&] { return reconstruct(burst).frames[3].motion.shiftAt(20, 20, width, height); };
    const AffineMotion::Shift whole = motionOfFrame();
    for (std::size_t y = 20; y < 50; ++y) {
      std::fill_n(burst.frames[holed].begin() + static_cast<std::ptrdiff_t>(y * width + 60), 30, notANumber);
    }
    const AffineMotion::Shift found = motionOfFrame();
    EXPECT_NEAR(found.x, whole.x, 0.001) << holed;
    EXPECT_NEAR(found.y, whole.y, 0.001) << holed;
  }
}

TEST(LocalMotionSuperResolution, TellsTheSensorsFaultsInAFormThatTheNextBurstTakes) {
  SyntheticBurst burst = rolledBurst(0.3);
  const Image pattern = randomImage(width * height, -0.8f, 0.8f, 5);
  for (Image& frame : burst.frames) {
    std::transform(frame.begin(), frame.end(), pattern.begin(), frame.begin(), std::plus<>());
    frame[50 * width + 70] = 24;  // stuck
  }
  const LocalMotionResult first = reconstruct(burst);
  ASSERT_EQ(first.badPixelMap.size(), cv::Size(width, height));
  EXPECT_EQ(first.badPixelMap(50, 70), 1);
  EXPECT_LE(cv::countNonZero(first.badPixelMap), first.badPixels);
  const std::vector<float> told = first.patternAverage.mean();
  ASSERT_EQ(told.size(), pattern.size());
  EXPECT_NEAR(cv::norm(told, pattern, cv::NORM_L2SQR) / cv::norm(pattern, cv::NORM_L2SQR), 0, 0.3);

  LocalMotionSuperResolution next(width, height, againstFirst());
  next.setBadPixels(first.badPixelMap.data);
  next.setKnownPattern(pattern.data());
  for (const Image& frame : burst.frames) {
    next.addFrame(frame.data());
  }
  const LocalMotionResult second = next.computeSR();
  EXPECT_EQ(second.badPixelMap(50, 70), 0);
  EXPECT_LT(second.pattern, 0.3 * first.pattern);
  EXPECT_LT(distance(imageOf(second), burst.truth, 2 * width, 12),
            distance(imageOf(first), burst.truth, 2 * width, 12));
  EXPECT_NE(textThrownBy([&] { next.setKnownPattern(Image(pattern.size(), notANumber).data()); }), "");
}

// Columns pull the motion towards them and are mostly taken for scene by a fit.
TEST(LocalMotionSuperResolution, TakesColumnsOutAndLeavesRealDetailAlone) {
  const Extra point = [](int, cv::Point2d p) {  // hot, one pixel wide, and moves with the scene
    const cv::Point2d d = p - cv::Point2d(60, 45);
    return std::max(std::abs(d.x), std::abs(d.y)) < 0.5 ? 20.0 : 0.0;
  };
  std::vector<Motion> back;
  for (const cv::Point2d& place : places) {
    back.push_back([place](cv::Point2d p) { return p - place; });
  }
  SyntheticBurst burst = makeMovingBurst(width, height, back, point);
  const LocalMotionResult clean = reconstruct(burst);
  EXPECT_EQ(clean.badPixels, 0);
  EXPECT_LT(clean.pattern, 0.01);
  const Image columns = randomImage(width, -0.8f, 0.8f, 5);
  for (Image& frame : burst.frames) {
    for (std::size_t i = 0; i < frame.size(); ++i) {
      frame[i] += columns[i % width];
    }
  }
  LocalMotionOptions left = againstFirst();
  left.correctPattern = false;
  const double plain = distance(imageOf(clean), burst.truth, 2 * width, 12);
  EXPECT_LT(distance(imageOf(reconstruct(burst)), burst.truth, 2 * width, 12), 1.3 * plain);
  EXPECT_GT(distance(imageOf(reconstruct(burst, left)), burst.truth, 2 * width, 12), 1.4 * plain);
}

TEST(LocalMotionSuperResolution, ChoosesTheFramesOfARecordingAndSaysWhatBecameOfTheOthers) {
  std::vector<Motion> back;
  for (int k = 0; k < 9; ++k) {
    back.push_back(inverseOf(0, {0.37 * (k % 5) - 0.6, 0.61 * (k % 4) - 0.9}, width, height));
  }
  SyntheticBurst burst = makeMovingBurst(width, height, back);
  std::fill(burst.frames[2].begin(), burst.frames[2].end(), notANumber);
  std::reverse(burst.frames[6].begin(), burst.frames[6].end());  // another scene
  LocalMotionOptions options;
  options.frames = 4;
  const LocalMotionResult result = reconstruct(burst, options);
  EXPECT_EQ(result.status, LocalMotionStatus::done);
  EXPECT_EQ(result.wantedFrames, 4);
  EXPECT_EQ(result.usedFrames, 4);
  ASSERT_EQ(result.frames.size(), 9U);
  EXPECT_EQ(result.field.shifts.size(), 9U);
  EXPECT_EQ(std::count_if(result.frames.begin(), result.frames.end(),
                          [](const LocalMotionFrame& frame) { return frame.use == FrameUse::spare; }),
            3);
  EXPECT_EQ(result.frames[2].use, FrameUse::noValidPixels);
  EXPECT_NE(result.frames[6].use, FrameUse::used);
  EXPECT_EQ(result.frames[static_cast<std::size_t>(result.reference)].use, FrameUse::used);
  EXPECT_NEAR(result.frames[static_cast<std::size_t>(result.reference)].motion.x, 0, 1e-9);
}

TEST(LocalMotionSuperResolution, TakesMotionsThatAreKnownOnAnyGrid) {
  const SyntheticBurst burst = rolledBurst(0.5);
  const LocalMotionResult estimated = reconstruct(burst);
  std::vector<AffineMotion> motions;
  for (const LocalMotionFrame& frame : estimated.frames) {
    motions.push_back(frame.motion);
  }
  LocalMotionOptions options;
  options.reference = 3;
  LocalMotionSuperResolution given(width, height, options);
  for (const Image& frame : burst.frames) {
    given.addFrame(frame.data());
  }
  given.setMotions(motions);
  const LocalMotionResult result = given.computeSR();
  const LocalMotionResult own = reconstruct(burst, options);
  EXPECT_EQ(result.usedFrames, 5);
  for (std::size_t k = 0; k < motions.size(); ++k) {
    EXPECT_NEAR(result.frames[k].motion.x, own.frames[k].motion.x, 0.02) << k;
    EXPECT_NEAR(result.frames[k].motion.yx, own.frames[k].motion.yx, 5e-4) << k;
  }
  EXPECT_LT(cv::norm(result.image, own.image, cv::NORM_L1) / static_cast<double>(own.image.total()), 0.3);

  motions[1].x = width;  // another place: nothing overlaps
  given.setMotions(motions);
  EXPECT_EQ(given.computeSR().frames[1].use, FrameUse::largeShift);
  motions[1].x = std::nan("");
  EXPECT_NE(textThrownBy([&] { given.setMotions(motions); }), "");
  motions.resize(2);
  motions[1].x = 0;
  given.setMotions(motions);
  EXPECT_NE(textThrownBy([&] { given.computeSR(); }), "");
}

TEST(LocalMotionSuperResolution, SaysWhatBecomesOfOddBursts) {
  const SyntheticBurst good = rolledBurst(0.3);
  struct Case {
    const char* name;
    std::function<void(SyntheticBurst&)> spoil;
    LocalMotionStatus status;
    int used;
  };
  const auto fill = [](Image& image, float value) { std::fill(image.begin(), image.end(), value); };
  const std::vector<Case> cases{
      {"no frame", [](auto& b) { b.frames.clear(); }, LocalMotionStatus::noFrames, 0},
      {"one frame", [](auto& b) { b.frames.resize(1); }, LocalMotionStatus::singleFrame, 1},
      {"two frames", [](auto& b) { b.frames.resize(2); }, LocalMotionStatus::done, 2},
      {"all constant",
       [&](auto& b) {
         for (auto& f : b.frames) {
           fill(f, 7);
         }
       },
       LocalMotionStatus::structureless, 1},
      {"constant frame", [&](auto& b) { fill(b.frames[2], 7); }, LocalMotionStatus::done, 4},
      {"NaN reference", [&](auto& b) { fill(b.frames[0], notANumber); }, LocalMotionStatus::noValidPixels, 0},
      {"infinite frame", [&](auto& b) { fill(b.frames[4], infinity); }, LocalMotionStatus::done, 4},
      {"NaN region in all",
       [](auto& b) {
         for (auto& f : b.frames) {
           for (std::size_t y = 30; y < 60; ++y) {
             std::fill_n(f.begin() + static_cast<std::ptrdiff_t>(y * width + 40), 30, notANumber);
           }
         }
       },
       LocalMotionStatus::done, 5},
      {"no overlap",
       [](auto& b) {
         b.frames.resize(2);
         for (auto& v : b.frames[1]) {
           v = -v * v;
         }
         std::reverse(b.frames[1].begin(), b.frames[1].end());
       },
       LocalMotionStatus::referenceAlone, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SyntheticBurst burst = good;
    c.spoil(burst);
    const LocalMotionResult result = reconstruct(burst);
    EXPECT_EQ(result.status, c.status) << toString(result.status);
    EXPECT_EQ(result.usedFrames, c.used);
    EXPECT_EQ(isFinite(result), result.status <= LocalMotionStatus::structureless);
  }
  // Sizes down to the smallest; a caller who has enough.
  const SyntheticBurst tiny = makeMovingBurst(8, 9, {still, inverseOf(0, {0.4, 0.3}, 8, 9)});
  EXPECT_TRUE(isFinite(reconstruct(tiny)));
  LocalMotionOptions impatient = againstFirst();
  impatient.progress = [](double done) { return done < 0.4; };
  EXPECT_EQ(reconstruct(good, impatient).status, LocalMotionStatus::cancelled);
}

TEST(LocalMotionSuperResolution, RefusesWhatItCannotDo) {
  const auto with = [](auto change) {
    LocalMotionOptions options;
    change(options);
    return textThrownBy([&] { LocalMotionSuperResolution(32, 32, options); });
  };
  EXPECT_EQ(textThrownBy([] { LocalMotionSuperResolution(7, 32); }), "exception: width is not within 8 ... 16384");
  EXPECT_EQ(with([](auto& o) { o.psfSigma = std::nan(""); }), "exception: psfSigma is not within 0.3 ... 2");
  EXPECT_EQ(with([](auto& o) { o.weightTV = -1; }), "exception: weightTV is not within 1 ... 10000");
  EXPECT_EQ(with([](auto& o) { o.reference = -2; }), "exception: reference is neither a frame nor bestReference");
  LocalMotionOptions fifth;
  fifth.reference = 4;
  LocalMotionSuperResolution reconstruction(32, 32, fifth);
  EXPECT_EQ(textThrownBy([&] { reconstruction.addFrame(nullptr); }), "exception: the frame is null");
  reconstruction.addFrame(Image(32 * 32, 1.0f).data());
  EXPECT_EQ(textThrownBy([&] { reconstruction.computeSR(); }), "exception: the reference is not one of the frames");
}
