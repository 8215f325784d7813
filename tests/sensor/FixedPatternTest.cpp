#include "vision/superresolution/FixedPattern.h"

#include "tests/sensor/SensorBurst.h"
#include "tests/support/Test.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

double deviation(const std::vector<float>& a, const std::vector<float>& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    sum += std::pow(static_cast<double>(a[i] - b[i]), 2);
  }
  return std::sqrt(sum / static_cast<double>(a.size()));
}

TEST(FixedPattern, FindsAPatternAndNothingWhereThereIsNone) {
  for (const float strength : {0.0f, 0.3f}) {
    SensorBurst burst(96, 64, wideShifts, 0.1);
    Image pattern = randomImage(96 * 64, -1.732f * strength, 1.7321f * strength, 9);
    for (int y = 0; y < 64; ++y) {
      pattern[static_cast<std::size_t>(y) * 96] = 0;  // no prediction there
    }
    for (Image& frame : burst.frames.images) {
      std::transform(frame.begin(), frame.end(), pattern.begin(), frame.begin(),
                     [](float a, float b) { return a + b; });
    }
    burst.frames.at(3, 50, 20) += 50;  // a flicker must not leak in
    std::vector<std::vector<float>> results;
    onEveryInstructionSet([&] {
      FixedPattern search(96, 64);
      SensorBurst corrected = burst;
      for (int round = 0; round < 2; ++round) {
        Stack residuals = corrected.residuals();
        const std::vector<float> step = search.add(residuals.view(), burst.motions, nullptr);
        for (Image& frame : corrected.frames.images) {
          FixedPattern::removeFrom(frame.data(), step);
        }
      }
      EXPECT_EQ(search.report().outcome, strength > 0 ? PatternOutcome::found : PatternOutcome::nothingFound);
      EXPECT_NEAR(search.report().strength, static_cast<double>(strength),
                  0.25 * static_cast<double>(strength) + 0.012);
      EXPECT_LT(deviation(search.pattern(), pattern), 0.05);
      results.push_back(search.pattern());
    });
    for (const std::vector<float>& result : results) {
      EXPECT_TRUE(sameBits(result, results[0]));
    }
  }
}

TEST(FixedPattern, AStandingBurstTellsNothing) {
  SensorBurst burst(48, 40, std::vector<Shift>(5, Shift(0, 0)), 0.1);
  for (Image& frame : burst.frames.images) {
    frame[500] += 3;  // scene that the fit did not get
  }
  Stack residuals = burst.residuals();
  FixedPattern search(48, 40);
  const std::vector<unsigned char> bad(48 * 40, 0);
  EXPECT_EQ(search.add(residuals.view(), burst.motions, bad.data()), std::vector<float>(48 * 40, 0.0f));
  EXPECT_EQ(search.report().outcome, PatternOutcome::tooLittleMotion);
  residuals.images.resize(2);
  search.add(residuals.view(), {{}, {}}, nullptr);
  EXPECT_EQ(search.report().outcome, PatternOutcome::tooFewFrames);
  EXPECT_EQ(search.average({}).mean(), std::vector<float>(48 * 40, 0.0f));
  EXPECT_NE(textThrownBy([&] { search.add(residuals.view(), {}, nullptr); }), "");
  EXPECT_NE(textThrownBy([] { FixedPattern(0, 5); }), "");
}

TEST(FixedPattern, AveragesOfBurstsGetBetterAndLeaveOutWhatIsNotFinite) {
  PatternAverage file;
  file.merge({});
  EXPECT_TRUE(file.empty());
  file.merge({2, 1, {3.0f, 8.0f}, {3.0f, 4.0f}});
  file.merge({2, 1, {5.0f, notANumber}, {1.0f, 1.0f}});
  EXPECT_EQ(file.mean(), (std::vector<float>{2.0f, 2.0f}));
  EXPECT_NE(textThrownBy([&] { file.merge({1, 2, {1, 1}, {1, 1}}); }), "");
  EXPECT_NE(textThrownBy([&] { file.merge({2, 1, {1}, {1, 1}}); }), "");
}

}  // namespace
