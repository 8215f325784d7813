#include "vision/superresolution/OffsetCorrection.h"

#include "tests/sensor/SensorBurst.h"
#include "tests/support/Test.h"
#include "vision/superresolution/NoiseEstimate.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

// What a shutter correction and a warming camera add to frame 2.
void spoil(Stack& frames, double offset, double slopeX, double slopeY, double gain) {
  for (int y = 0; y < frames.height; ++y) {
    for (int x = 0; x < frames.width; ++x) {
      const double plane = offset + slopeX * (1.0 * x / frames.width - 0.5) + slopeY * (1.0 * y / frames.height - 0.5);
      float& value = frames.at(2, x, y);
      value = static_cast<float>(300 + gain * (static_cast<double>(value) - 300) + plane);
    }
  }
}

TEST(OffsetCorrection, FindsAndRemovesWhatWasAdded) {
  SensorBurst clean(160, 120, wideShifts, 0.05);
  SensorBurst burst = clean;
  spoil(burst.frames, 2.0, 0.4, -0.3, 1.0);
  burst.frames.at(2, 50, 50) = notANumber;
  burst.frames.at(2, 51, 60) = asFloat(129);
  const OffsetCorrection correction;
  EXPECT_NEAR(correction.medians(burst.frames.view(), 0)[2].offset, 2.0, 0.3);  // the scene moved
  const std::vector<FrameOffset> found = correction.planes(burst.frames.view(), 0, burst.motions);
  EXPECT_EQ(found[0].outcome, OffsetOutcome::reference);
  EXPECT_EQ(found[2].outcome, OffsetOutcome::plane);
  EXPECT_NEAR(found[2].offset, 2.0, 0.02);
  EXPECT_NEAR(found[2].slopeX, 0.4, 0.06);
  EXPECT_NEAR(found[2].slopeY, -0.3, 0.06);
  EXPECT_NEAR(found[1].offset, 0, 0.02);
  found[2].removeFrom(burst.frames.images[2].data(), 160, 120);
  EXPECT_NEAR(burst.frames.at(2, 20, 20), clean.frames.at(2, 20, 20), 0.06);
  EXPECT_EQ(asFloat(129), burst.frames.at(2, 51, 60));
}

TEST(OffsetCorrection, UsesAGainOnlyBeyondTwoPercent) {
  for (const double gain : {1.0, 1.01, 1.05}) {
    SensorBurst burst(160, 120, wideShifts, 0.02);
    spoil(burst.frames, 0, 0, 0, gain);
    OffsetCorrection correction;
    EXPECT_EQ(correction.planes(burst.frames.view(), 0, burst.motions)[2].gain, 1);
    correction.setGain(true);
    const double found = correction.planes(burst.frames.view(), 0, burst.motions)[2].gain;
    EXPECT_NEAR(found, gain > 1.02 ? gain : 1, gain > 1.02 ? 0.01 : 0) << gain;
  }
}

TEST(OffsetCorrection, FramesThatShareNothingOrALittleAreSaidSo) {
  SensorBurst burst(96, 64, wideShifts, 0.05);
  burst.motions[1].x = 1e30;
  burst.motions[2].x = std::numeric_limits<double>::quiet_NaN();
  burst.motions[3].x = 70;
  burst.frames.images[4].assign(burst.frames.images[4].size(), notANumber);
  const std::vector<FrameOffset> found = OffsetCorrection().planes(burst.frames.view(), 0, burst.motions);
  for (const std::size_t k : {1, 2, 4}) {
    EXPECT_EQ(found[k].outcome, OffsetOutcome::noOverlap) << k;
    EXPECT_EQ(found[k].offset, 0);
  }
  EXPECT_EQ(found[3].outcome, OffsetOutcome::smallOverlap);
  EXPECT_EQ(OffsetCorrection().medians(burst.frames.view(), 0)[4].outcome, OffsetOutcome::noOverlap);
  EXPECT_NE(textThrownBy([&] { OffsetCorrection().medians(burst.frames.view(), 7); }), "");
  EXPECT_NE(textThrownBy([&] { OffsetCorrection().planes(burst.frames.view(), 0, {}); }), "");
}

TEST(NoiseEstimate, ReadsTheNoiseAndFitsTheWeight) {
  for (const double noise : {0.05, 0.2, 1.0}) {
    SensorBurst burst(160, 120, wideShifts, noise);
    burst.frames.at(1, 40, 40) = infinity;
    Stack residuals = burst.residuals();
    std::vector<float> weights;
    onEveryInstructionSet([&] {
      const NoiseReport report = NoiseEstimate::ofResiduals(burst.frames.view(), 0, residuals.view());
      EXPECT_NEAR(report.residual, noise, 0.05 * noise);
      EXPECT_GT(report.noise, 0.9 * noise);  // texture adds to it
      EXPECT_NEAR(NoiseEstimate::ofFrame(residuals.images[2].data(), 160, 120), noise, 0.05 * noise);
      EXPECT_NEAR(report.weightTV, std::min(400.0, 5 * report.deviation / report.residual), 1e-3);
      weights.push_back(static_cast<float>(report.noise));
    });
    EXPECT_EQ(weights, std::vector<float>(weights.size(), weights[0]));
  }
  Stack flat{{Image(100, 5.0f), Image(100, 5.0f)}, {}, 10, 10};
  Stack none{{Image(100, notANumber), Image(100, notANumber)}, {}, 10, 10};
  EXPECT_EQ(NoiseEstimate::ofResiduals(flat.view(), 0, none.view()).weightTV, 400);
  EXPECT_EQ(NoiseEstimate::ofFrames(none.view()), 0);
  EXPECT_EQ(NoiseEstimate::ofFrame(flat.images[0].data(), 2, 50), 0);
}

}  // namespace
