#include "vision/superresolution/EdgePsf.h"

#include <random>

#include "tests/support/Test.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

/// A warm half plane through optics and square pixels, averaged over 9 x 9 points of each; `degrees` from the column.
Image edge(double degrees, double optics, double noise, double contrast, int width = 48, int height = 40) {
  std::mt19937 random(3);
  std::normal_distribution<double> normal(0, noise);
  const double c = std::cos(degrees / 57.29577951308232);
  const double s = std::sin(degrees / 57.29577951308232);
  Image image;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      double sum = 0;
      for (int i = 0; i < 81; ++i) {
        const double t = (x + (i % 9 - 4) / 9.0 - width / 2.0 - 0.3) * c + (y + (i / 9 - 4) / 9.0 - height / 2.0) * s;
        sum += 0.5 * std::erfc(-t / (0.5 * optics * std::sqrt(2.0)));
      }
      image.push_back(static_cast<float>(290 + contrast * sum / 81 + normal(random)));
    }
  }
  return image;
}

TEST(EdgePsf, MeasuresThreeBlursAtTwoNoises) {
  for (const double optics : {0.365, 0.6, 0.8}) {
    for (const double degrees : {3.0, 8.0, 20.0, 95.0, 188.0}) {
      for (const auto& [noise, tolerance] : {std::pair(0.05, 0.015), {0.2, 0.06}}) {
        const Image frame = edge(degrees, optics, noise, 10);
        const EdgePsfReport report = EdgePsf::measure(frame.data(), 48, 40);
        SCOPED_TRACE(::testing::Message() << optics << " at " << degrees << " degrees, noise " << noise);
        ASSERT_EQ(report.outcome, EdgeOutcome::measured) << toString(report.outcome);
        const DirectionBlur& blur = degrees == 95.0 ? report.y : report.x;
        EXPECT_EQ((degrees == 95.0 ? report.x : report.y).windows, 0);
        EXPECT_NEAR(blur.optics, optics, tolerance);
        EXPECT_NEAR(blur.total, std::sqrt(optics * optics + 1.0 / 3), tolerance);
        EXPECT_LT(std::abs(blur.total - std::sqrt(optics * optics + 1.0 / 3)), 4 * blur.uncertainty + 0.002);
        EXPECT_NEAR(report.contrast, 10, 0.3);
        EXPECT_NEAR(report.noise, noise, 0.2 * noise);
        EXPECT_GT(report.profile.size(), 100);
      }
    }
  }
}

TEST(EdgePsf, SaysWhyThereIsNoMeasurement) {
  const auto outcome = [](const Image& image, int width) {
    return EdgePsf::measure(image.data(), width, static_cast<int>(image.size()) / width).outcome;
  };
  EXPECT_EQ(outcome(edge(0, 0.4, 0.05, 10), 48), EdgeOutcome::onlyAlignedEdges);
  EXPECT_EQ(outcome(randomImage(48 * 40, 0, 1, 1), 48), EdgeOutcome::noEdge);
  EXPECT_EQ(outcome(Image(48 * 40, 3.0f), 48), EdgeOutcome::noEdge);
  EXPECT_EQ(outcome(Image(48 * 40, notANumber), 48), EdgeOutcome::noEdge);
  EXPECT_EQ(outcome(Image(15 * 15, 1.0f), 15), EdgeOutcome::frameTooSmall);
  EXPECT_NE(textThrownBy([] { EdgePsf::measure(nullptr, 20, 20); }), "");
}

// Every second row made of its neighbours, as by a camera that calls half of its rows its own.
TEST(EdgePsf, NoticesInterpolatedRows) {
  for (const bool interpolated : {false, true}) {
    Image frame = edge(5, 0.4, 0.05, 10, 128, 96);
    for (std::size_t i = 128; interpolated && i + 128 < frame.size(); ++i) {
      if (i / 128 % 2 == 1) {
        frame[i] = 0.5f * (frame[i - 128] + frame[i + 128]);
      }
    }
    EXPECT_EQ(EdgePsf::measure(frame.data(), 128, 96).interpolated,
              interpolated ? InterpolatedLines::rows : InterpolatedLines::none);
  }
}

}  // namespace
