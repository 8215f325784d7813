#include "vision/superresolution/SrFloatNeon.h"

#include "tests/support/SilentConsole.h"
#include "tests/support/SparseArrays.h"
#include "tests/support/Test.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatConvolution.h"
#include "vision/superresolution/SrFloatNeonConvolution.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

using Engine = SrFloatNeon<SrFloatNeonRegistration>;

/// What a caller gets of one reconstruction.
struct Outcome {
  float srFactor = 0;
  Image image;
  std::vector<Shift> shifts;
  std::string written;  // to standard output
};

template <class AnyEngine>
Outcome reconstruct(AnyEngine& engine) {
  const SilentConsole console;
  Outcome outcome;
  outcome.image.resize(static_cast<std::size_t>(engine.getOutputSize()));
  outcome.srFactor = engine.computeSR(outcome.image.data());
  outcome.written = console.text();
  engine.getCompleteShifts(outcome.shifts);
  return outcome;
}

}  // namespace

TEST(SrFloatNeonConvolution, EqualsTheProductionOperatorsForEveryFactor) {
  for (const float factor : {1.0f, 2.0f, 2.5f, 3.0f}) {
    SparseArrays c{46, 14, 6, 6, factor}, weighted = c;
    Image mask = randomImage(static_cast<int>(c.image.size()), 0, 1, 5);
    // A fraction weights its sample before anything else happens to it.
    for (std::size_t i = 0; i < mask.size(); ++i) {
      weighted.image[i] *= mask[i];
    }
    SrFloatNeonConvolution vectors(46, 14, 6, 6, factor);
    SrFloatConvolution production(46, 14, 6, 6, factor);
    EXPECT_EQ(c.transposed(vectors, mask), weighted.transposed(production)) << c.name();
    EXPECT_EQ(c.imaged(vectors), c.imaged(production)) << c.name();
  }
}

TEST(SrFloatNeon, EqualsTheProductionEngineOnFramesWithoutBadPixelsAndWritesNothing) {
  std::vector<Shift> shifts = smallShifts;
  shifts.insert(shifts.end(), {{1.2f, -2.3f}, {0.6f, 0.8f}});
  const SyntheticBurst burst = makeBurst({61, 43, shifts, 0.03});
  Engine vectors(61, 43, 5, 2.0f);
  SrFloat<SrFloatRegistration2> production(61, 43, 5, 2.0f);
  vectors.setReferenceIndex(2);
  production.setReferenceIndex(2);
  for (const Image& frame : burst.frames) {
    vectors.addFrame(frame.data());
    production.addFrame(frame.data());
  }
  const Outcome actual = reconstruct(vectors), expected = reconstruct(production);
  EXPECT_EQ(actual.srFactor, expected.srFactor);
  EXPECT_GT(actual.srFactor, 0.75f);
  EXPECT_EQ(actual.shifts, expected.shifts);
  EXPECT_EQ(actual.image, expected.image);
  EXPECT_EQ(actual.written, "");
}

TEST(SrFloatNeon, FlaggedPixelsPassUnrepaired) {
  SyntheticBurst burst = makeBurst({});
  Engine engine(burst.width, burst.height, 5, 2.0f);
  for (Image& frame : burst.frames) {
    frame[20 * 48 + 30] = 1e4f;  // beyond the valid range, which SrFloat repairs
    EXPECT_EQ(engine.addFrame(frame.data()), 0);
  }
  const Image image = reconstruct(engine).image;
  EXPECT_GT(*std::max_element(image.begin(), image.end()), 1000.0f);
}

TEST(SrFloatNeon, FullMasksGiveTheLargestSrFactorAndGetMasksCopiesTheirFirstQuarter) {
  const SyntheticBurst burst = makeBurst({48, 40, std::vector<Shift>(5)});
  Engine engine(burst.width, burst.height, 5, 2.0f);
  for (const Image& frame : burst.frames) {
    engine.addFrame(frame.data());
  }
  EXPECT_EQ(reconstruct(engine).srFactor, 2.0f);

  std::vector<cv::Mat_<float>> masks;
  for (int i = 0; i < 5; ++i) {
    masks.emplace_back(burst.height, burst.width, 7.0f);
  }
  masks.emplace_back(3, 3, 7.0f);
  engine.getMasks(masks);
  ASSERT_EQ(masks.size(), 5u);
  Image expected(burst.frames[0].size(), 7.0f);
  std::fill_n(expected.begin(), expected.size() / 4, 1.0f);
  for (const cv::Mat_<float>& mask : masks) {
    EXPECT_EQ(Image(mask.begin(), mask.end()), expected);
  }
}
