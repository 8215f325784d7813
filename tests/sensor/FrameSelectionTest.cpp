#include "vision/superresolution/FrameSelection.h"

#include <random>

#include "tests/support/Test.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

FrameQuality at(double x, double y) {
  FrameQuality frame;
  frame.motion.x = x;
  frame.motion.y = y;
  return frame;
}

// A trembling hand.
std::vector<FrameQuality> recording(int count) {
  std::mt19937 random(7);
  const auto tremor = [&] { return static_cast<double>(random() >> 8) / 4194304.0 - 2; };
  std::vector<FrameQuality> frames;
  for (int k = 0; k < count; ++k) {
    const double x = tremor();
    frames.push_back(at(x, tremor()));
  }
  return frames;
}

double offGrid(double shift) {
  const double f = std::abs(2 * (shift - std::floor(shift + 0.5)));
  return f * (1 - f);
}

TEST(FrameSelection, FortyFramesFillTheFourPhasesWithTheBestPlaced) {
  const std::vector<FrameQuality> frames = recording(40);
  for (const auto& [noise, wanted] : {std::pair(0.01, 12), {0.05, 20}}) {
    const FrameSelectionReport report = FrameSelection().select(frames, 240, noise);
    ASSERT_EQ(report.taken.size(), static_cast<std::size_t>(wanted));
    EXPECT_EQ(report.wanted, wanted);
    int perPhase[4] = {};
    double blur = 0;
    for (const int k : report.taken) {
      const AffineMotion& motion = frames[static_cast<std::size_t>(k)].motion;
      const AffineMotion& origin = frames[static_cast<std::size_t>(report.reference)].motion;
      const int x = static_cast<int>(std::lround(2 * (motion.x - origin.x))) & 1;
      const int y = static_cast<int>(std::lround(2 * (motion.y - origin.y))) & 1;
      ++perPhase[2 * y + x];
      blur += 0.5 * (offGrid(motion.x - origin.x) + offGrid(motion.y - origin.y)) / wanted;
      EXPECT_EQ(report.verdicts[static_cast<std::size_t>(k)],
                k == report.reference ? FrameVerdict::reference : FrameVerdict::taken);
    }
    EXPECT_NEAR(report.moveBlur, blur, 1e-12);
    EXPECT_LT(blur, 0.13);  // 1/6 on average
    for (const int count : perPhase) {
      EXPECT_GE(count, 2);
    }
  }
  FrameSelection all;
  all.setCount(FrameSelection::all);
  EXPECT_EQ(all.select(frames, 240, 0).taken.size(), 40);
}

TEST(FrameSelection, FramesThatHarmAreLeftOutWithTheirReason) {
  std::vector<FrameQuality> frames = recording(9);
  frames[1].registered = false;
  frames[2].agreement = 0.2;
  frames[3].coverage = 0.04;
  frames[4].motion.x += 130;
  frames[5].motion.y = std::nan("");
  for (std::size_t k = 0; k < frames.size(); ++k) {
    frames[k].residual = k == 6 ? 0.3 : 0.1;
  }
  const FrameSelectionReport report = FrameSelection().select(frames, 240, 0);
  EXPECT_EQ(report.verdicts[1], FrameVerdict::notRegistered);
  EXPECT_EQ(report.verdicts[2], FrameVerdict::fewAgreeingBlocks);
  EXPECT_EQ(report.verdicts[3], FrameVerdict::lowCoverage);
  EXPECT_EQ(report.verdicts[4], FrameVerdict::largeShift);
  EXPECT_EQ(report.verdicts[5], FrameVerdict::notRegistered);
  EXPECT_EQ(report.verdicts[6], FrameVerdict::largeResidual);
  EXPECT_EQ(report.taken, (std::vector<int>{0, 7, 8}));
  FrameSelection fixed;
  fixed.setReference(3);  // whatever it is like
  EXPECT_EQ(fixed.select(frames, 240, 0).reference, 3);
}

TEST(FrameSelection, TheReferenceIsTheOneWhoseGridTheOthersFit) {
  // Frames 0, 2 and 3 lie half pixels apart; frame 1 lies between.
  const std::vector<FrameQuality> frames{at(0, 0), at(0.26, 0.27), at(0.5, 1), at(1.5, 0.5)};
  EXPECT_NE(FrameSelection().select(frames, 100, 0).reference, 1);
  FrameSelection three;
  three.setCount(3);
  EXPECT_EQ(three.select(frames, 100, 0).taken, (std::vector<int>{0, 2, 3}));
}

TEST(FrameSelection, BadInput) {
  FrameSelection selection;
  EXPECT_NE(textThrownBy([&] { selection.setCount(-2); }), "");
  EXPECT_NE(textThrownBy([&] { selection.select({}, 100, 0); }), "");
  FrameQuality lost;
  lost.registered = false;
  const FrameSelectionReport report = selection.select({lost, lost}, 100, 0);
  EXPECT_EQ(report.reference, -1);
  EXPECT_TRUE(report.taken.empty());
  EXPECT_EQ(selection.select({at(5, 5)}, 100, 0).reference, 0);
}

}  // namespace
