#include "vision/superresolution/BurstBadPixels.h"

#include "tests/sensor/SensorBurst.h"
#include "tests/support/Test.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

PixelFault faultAt(const BurstBadPixels& search, int x, int y) {
  for (const BadPixelFinding& pixel : search.report().pixels) {
    if (pixel.x == x && pixel.y == y) {
      return pixel.fault;
    }
  }
  ADD_FAILURE() << "pixel (" << x << ", " << y << ") was not found";
  return PixelFault::known;
}

// One of each kind.
void addFaults(Stack& frames) {
  for (std::size_t k = 0; k < frames.images.size(); ++k) {
    frames.at(k, 40, 30) = 306;
    frames.at(k, 70, 50) += 2;
    frames.at(k, 71, 50) -= 2;
    frames.at(k, 100, 80) += k % 3 == 1 ? 3.0f : 0;
    frames.at(k, 130, 20) += k == 4 ? 25.0f : 0;
    frames.at(k, 20, 100) = notANumber;
  }
  frames.at(2, 90, 90) = notANumber;
}

TEST(BurstBadPixels, FindsEveryKindOfFaultAndNothingElse) {
  onEveryInstructionSet([] {
    SensorBurst burst(160, 120, wideShifts, 0.05);
    addFaults(burst.frames);
    BurstBadPixels search(burst.frames.view());
    search.addKnown(10, 11);
    search.addKnown(-1, 500);
    EXPECT_LE(search.report().pixels.size(), 160 * 120 * 3 / 100 + 2);
    Stack residuals = burst.residuals();
    while (search.update(burst.frames.view(), residuals.view(), burst.motions)) {
    }
    EXPECT_EQ(search.report().search, BadPixelSearch::done);
    EXPECT_EQ(search.report().pixels.size(), 7);
    EXPECT_EQ(std::count(search.map().begin(), search.map().end(), 0), 160 * 120 - 7);
    EXPECT_EQ(faultAt(search, 10, 11), PixelFault::known);
    EXPECT_EQ(faultAt(search, 40, 30), PixelFault::stuck);
    EXPECT_EQ(faultAt(search, 70, 50), PixelFault::offset);
    EXPECT_EQ(faultAt(search, 71, 50), PixelFault::offset);
    EXPECT_EQ(faultAt(search, 100, 80), PixelFault::flickering);
    EXPECT_EQ(faultAt(search, 130, 20), PixelFault::flickering);
    EXPECT_EQ(faultAt(search, 20, 100), PixelFault::flagged);
    for (std::size_t k = 0; k < burst.frames.images.size(); ++k) {
      search.fill(burst.frames.images[k].data());
      EXPECT_NEAR(burst.frames.at(k, 40, 30), burst.predictions.at(k, 40, 30), 3);
      EXPECT_TRUE(std::isfinite(burst.frames.at(k, 20, 100)));
    }
    EXPECT_NEAR(burst.frames.at(2, 90, 90), burst.predictions.at(2, 90, 90), 3);
  });
}

// One pixel wide, and where the frame's shift puts it; the prediction knows it up to a few per cent.
TEST(BurstBadPixels, AHotPointThatMovesWithTheSceneStays) {
  SensorBurst burst(160, 120, wideShifts, 0.05);
  for (std::size_t k = 0; k < wideShifts.size(); ++k) {
    const int x = 80 + static_cast<int>(std::floor(wideShifts[k].x + 0.5f));
    const int y = 60 + static_cast<int>(std::floor(wideShifts[k].y + 0.5f));
    burst.frames.at(k, x, y) += 30;
    burst.predictions.at(k, x, y) += 28;
  }
  BurstBadPixels search(burst.frames.view());
  Stack residuals = burst.residuals();
  search.update(burst.frames.view(), residuals.view(), burst.motions);
  EXPECT_TRUE(search.report().pixels.empty());
}

TEST(BurstBadPixels, WithoutEnoughMotionItSaysSoAndMarksNothing) {
  for (const auto& [scale, expected] :
       {std::pair(0.3f, BadPixelSearch::strict), {0.05f, BadPixelSearch::tooLittleMotion}}) {
    std::vector<Shift> shifts;
    for (const Shift& shift : wideShifts) {
      shifts.push_back({scale * shift.x, scale * shift.y});
    }
    SensorBurst burst(96, 64, shifts, 0.05);
    for (std::size_t k = 0; k < shifts.size(); ++k) {
      burst.frames.at(k, 30, 30) += 30;
      // A detail of the scene that the fit did not get.
      for (const int x : {60, 61, 62}) {
        burst.frames.at(k, x, 40) += 30;
      }
    }
    BurstBadPixels search(burst.frames.view());
    Stack residuals = burst.residuals();
    search.update(burst.frames.view(), residuals.view(), burst.motions);
    EXPECT_EQ(search.report().search, expected) << search.report().medianDistance;
    EXPECT_EQ(search.report().pixels.size(), expected == BadPixelSearch::strict ? 1 : 0);
  }
}

TEST(BurstBadPixels, OneFrameAndEightBitDataAreNotSearched) {
  SensorBurst burst(64, 48, {wideShifts[0]}, 0.05);
  EXPECT_EQ(BurstBadPixels(burst.frames.view()).report().search, BadPixelSearch::tooFewFrames);
  Stack grey{{randomImage(64 * 48, 0, 255, 1), randomImage(64 * 48, 0, 255, 2)}, {}, 64, 48};
  for (const float scale : {1.0f, 1 / 255.0f}) {
    Stack steps = grey;
    for (Image& image : steps.images) {
      std::transform(image.begin(), image.end(), image.begin(), [&](float v) { return std::floor(v) * scale; });
    }
    BurstBadPixels search(steps.view());
    EXPECT_EQ(search.report().search, BadPixelSearch::eightBitData);
    EXPECT_FALSE(search.update(steps.view(), steps.view(), {{}, {}}));
    EXPECT_TRUE(search.report().pixels.empty());
  }
  EXPECT_FALSE(BurstBadPixels::isEightBitData(grey.view()));
}

TEST(BurstBadPixels, BadInputIsRefusedAndFramesWithoutAValueAreFlagged) {
  SensorBurst burst(40, 30, wideShifts, 0.05);
  BurstBadPixels search(burst.frames.view());
  SensorBurst other(30, 40, wideShifts, 0.05);
  EXPECT_NE(textThrownBy([&] { search.update(other.frames.view(), other.frames.view(), other.motions); }), "");
  EXPECT_NE(textThrownBy([&] { search.update(burst.frames.view(), burst.frames.view(), {}); }), "");
  EXPECT_NE(textThrownBy([&] { BurstBadPixels({nullptr, 1, 4, 4}); }), "");
  Stack nothing{{Image(12, notANumber), Image(12, infinity)}, {}, 4, 3};
  BurstBadPixels empty(nothing.view());
  empty.update(nothing.view(), nothing.view(), {{}, {}});
  EXPECT_EQ(empty.report().pixels.size(), 12);
  Stack tiny{{Image{1}, Image{2}}, {}, 1, 1};
  EXPECT_TRUE(BurstBadPixels(tiny.view()).report().pixels.empty());
}

}  // namespace

// Frames that share no good pixel leave nothing to take the median of.
TEST(OrderStatistics, NoValuesGiveZeroAndRanksBeyondTheEndTheLast) {
  std::vector<float> none;
  EXPECT_EQ(detail::medianOf(none), 0.0f);
  EXPECT_EQ(detail::orderStatistic(none, 3), 0.0f);
  std::vector<float> three{2, 3, 1};
  EXPECT_EQ(detail::orderStatistic(three, 9), 3.0f);
  EXPECT_EQ(detail::medianOf(three), 2.0f);
}
