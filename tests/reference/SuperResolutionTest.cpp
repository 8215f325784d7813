#include "vision/superresolution/reference/SuperResolution.h"

#include <opencv2/imgproc.hpp>

#include "tests/support/Test.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatMinimization.h"
#include "vision/superresolution/reference/SixteenBits.h"
#include "vision/superresolution/reference/SuperResolutionMinimization.h"
#include "vision/superresolution/reference/SuperResolutionRegistration.h"

namespace movra::vision {
namespace {

using namespace movra::test;

template <class Engine>
float compute(Engine& engine, const std::vector<Image>& frames, Image& out) {
  for (const Image& frame : frames) {
    engine.addFrame(frame.data());
  }
  out.resize(static_cast<std::size_t>(engine.getOutputSize()));
  float none = 0;
  return engine.computeSR(out.empty() ? &none : out.data());
}

/// Each pixel repeated `factor` times in both directions.
Image repeated(const Image& image, int width, int factor) {
  const int height = static_cast<int>(image.size()) / width;
  Image result;
  for (int y = 0; y < factor * height; ++y)
    for (int x = 0; x < factor * width; ++x) {
      result.push_back(image[static_cast<std::size_t>(y / factor * width + x / factor)]);
    }
  return result;
}

TEST(SuperResolutionTest, ComesCloseToTheProductionEngine) {
  const SyntheticBurst burst = makeBurst({96, 72});
  SuperResolution reference(96, 72, 5, 2);
  SrFloat<SrFloatRegistration2> production(96, 72, 5, 2);
  reference.setReferenceIndex(3);
  production.setReferenceIndex(3);
  Image image, expected;
  const float quality = compute(reference, burst.frames, image);
  EXPECT_NEAR(quality, compute(production, burst.frames, expected), 0.02);

  const double error = distance(image, burst.truth, 192, 12);
  EXPECT_LT(error, 0.65 * distance(repeated(burst.frames[1], 96, 2), burst.truth, 192, 12));
  EXPECT_LT(error, 1.03 * distance(expected, burst.truth, 192, 12));
}

/// Nine frames, each a third of the scene's pixels, of which each sees a Gaussian around it.
TEST(SuperResolutionTest, ReconstructsAtFactorThree) {
  constexpr int width = 64, height = 48, factor = 3;
  cv::Mat_<float> scene(factor * height, factor * width), seen;
  for (int y = 0; y < scene.rows; ++y)
    for (int x = 0; x < scene.cols; ++x) {
      scene(y, x) = static_cast<float>(sceneTemperature(x / 1.5, y / 1.5));
    }
  cv::GaussianBlur(scene, seen, {7, 7}, 1.0);
  std::vector<Image> frames(9);
  for (int k = 0; k < 9; ++k)
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        frames[static_cast<std::size_t>(k)].push_back(seen(factor * y + k / 3, factor * x + k % 3));
      }

  SuperResolution engine(width, height, 9, factor);
  engine.setReferenceIndex(4);  // the middle of each pixel
  engine.setPsfSigma(1.0f);
  engine.setMaxCGIters(20);
  Image image;
  EXPECT_GT(compute(engine, frames, image), 1.0f);
  const Image truth(scene.begin(), scene.end());
  const double error = distance(image, truth, factor * width, 12);
  EXPECT_LT(error, 0.4 * distance(repeated(frames[4], width, factor), truth, factor * width, 12));

  // The image lies where the scene does: moved by a pixel, it fits less.
  std::rotate(image.begin(), image.begin() + 1, image.end());
  EXPECT_LT(error, 0.7 * distance(image, truth, factor * width, 12));
}

/// Made for whole factors; with others the image means little, but every access stays inside its arrays.
TEST(SuperResolutionTest, AnyFactorIsSafe) {
  for (const float factor : {0.0f, 1.5f, 4.0f, notANumber}) {
    SCOPED_TRACE(factor);
    SuperResolution engine(40, 32, 2, factor);
    std::vector<Image> frames = makeBurst({40, 32, {{0, 0}, {0.4f, -0.3f}}}).frames;
    frames[0][20 * 40 + 10] = notANumber;  // repaired in the frame and in the image
    Image out;
    EXPECT_GT(compute(engine, frames, out), 0.75f);
    engine.simpleCombine();
    if (!out.empty()) {
      engine.saveFrame(out.data());
    }
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float value) { return std::isfinite(value); }));
  }
}

TEST(SuperResolutionTest, MinimisationEqualsTheProductionEnginesBitForBit) {
  SyntheticBurst burst = makeBurst({40, 32});
  SyntheticBurst copy = burst;
  Image image(80 * 64), expected(80 * 64);
  SuperResolutionMinimization reference(40, 32, 5, 2);
  SrFloatMinimization production(40, 32, 5, 2);
  std::vector<PointF> shifts;
  for (const Shift shift : burst.shifts) {
    shifts.push_back({shift.x, shift.y});
  }
  const auto minimize = [&](int count, int refIndex) {
    return reference.minimize(count, refIndex, burst.framePointers().data(), shifts.data(), burst.maskPointers().data(),
                              image.data());
  };
  EXPECT_EQ(minimize(5, 1), production.minimize(5, 1, copy.framePointers().data(), copy.shifts.data(),
                                                copy.maskPointers().data(), expected.data()));
  EXPECT_TRUE(sameBits(image, expected));
  for (const auto& [count, refIndex] : {std::pair(0, 0), std::pair(6, 0), std::pair(5, 5)}) {
    EXPECT_EQ(minimize(count, refIndex), SuperResolutionMinimization::noFrames);
  }
  burst.frames[1][7] = notANumber;
  EXPECT_EQ(minimize(5, 1), SuperResolutionMinimization::noContrast);
}

TEST(SuperResolutionTest, SettersRejectWithTheirTexts) {
  SuperResolution engine(40, 32, 5, 2);
  EXPECT_EQ(engine.getInputSize(), 40 * 32);
  EXPECT_EQ(engine.getOutputSize(), 80 * 64);
  EXPECT_EQ(engine.getWindowSize(), 5);
  expectSettersRejectWithTheirTexts(engine);
  EXPECT_THROW(SuperResolution(-1, 32, 3, 2), std::bad_array_new_length);
  EXPECT_THROW(SuperResolution(0, 32, 3, 2), Exception);
  SuperResolution small(8, 6, 5, 2);  // takes a Gaussian that fits
  expectSettersRejectWithTheirTexts(small);
  EXPECT_EQ(small.addFrame(Image(48, 3).data()), 0);
  EXPECT_EQ(textThrownBy([] { SuperResolution(40, 32, 0, 2); }), "Invalid reference index specified.");
}

TEST(SuperResolutionTest, FailuresAndWarnings) {
  Image out;
  const Image constant(48 * 40, 300.0f);
  SuperResolution still(48, 40, 5, 2);
  EXPECT_EQ(compute(still, {}, out), -998.0f);
  EXPECT_EQ(compute(still, {constant}, out), SuperResolutionMinimization::noContrast);
  EXPECT_THROW(still.addFrame<float>(nullptr), Exception);
  EXPECT_THROW(still.computeSR<float>(nullptr), Exception);

  SuperResolution far(48, 40, 2, 2);
  EXPECT_EQ(compute(far, makeBurst({48, 40, {{0, 0}, {4.4f, 0}}}).frames, out), -6.0f);  // beyond 40 / 10
  EXPECT_NEAR(out[40 * 96 + 48], 300, 15);                                               // there is an image
  EXPECT_EQ(compute(far, {constant}, out), -998.0f);                                     // no shift can be measured
}

TEST(SuperResolutionTest, WindowKeepsFramesSpectraAndDefectsInStep) {
  const SyntheticBurst burst =
      makeBurst({48, 40, {{2.2f, 1.1f}, {0.31f, -0.22f}, {0, 0}, {-0.44f, 0.37f}, {1.18f, 0.46f}}});
  const std::vector<Image> lastThree(burst.frames.begin() + 2, burst.frames.end());
  SuperResolution fresh(48, 40, 3, 2), used(48, 40, 3, 2);
  fresh.setReferenceIndex(2);
  used.setReferenceIndex(2);
  Image image, expected;
  const float quality = compute(fresh, lastThree, expected);
  std::vector<cv::Mat_<unsigned char>> masks;
  fresh.getMasks(masks);
  EXPECT_EQ(cv::countNonZero(masks.at(0)), 48 * 40);  // the reference is at position 0
  compute(used, burst.frames, image);
  EXPECT_EQ(image, expected) << "the first two dropped out";
  used.clearFrames();
  EXPECT_EQ(used.computeSR(image.data()), -998.0f);
  EXPECT_GT(compute(used, {lastThree[0], lastThree[1]}, image), 0) << "fewer frames than before";
  const Image broken(48 * 40, notANumber);
  EXPECT_EQ(textThrownBy([&] { used.addFrame(broken.data()); }),
            "exception: Too many defect pixels. No processing possible.");
  EXPECT_EQ(compute(used, lastThree, image), quality) << "the broken frame was counted and dropped out";
  EXPECT_EQ(image, expected);
}

TEST(SuperResolutionTest, ShortFramesAndResults) {
  for (const auto& [value, expected] : {std::pair(70000.7f, 4464), std::pair(-1.9f, -1), std::pair(notANumber, 0)}) {
    EXPECT_EQ(detail::lowSixteenBits(value), expected) << value;
  }

  SuperResolution ofShorts(48, 40, 5, 2), ofFloats(48, 40, 5, 2);
  for (const Image& frame : makeBurst({48, 40}).frames) {
    std::vector<short> counts;
    for (const float value : frame) {
      counts.push_back(static_cast<short>(10 * value));
    }
    EXPECT_EQ(ofShorts.addFrame(counts.data()), 0);
    EXPECT_EQ(ofFloats.addFrame(Image(counts.begin(), counts.end()).data()), 0);
  }
  std::vector<short> shorts(96 * 80);
  Image floats(96 * 80);
  EXPECT_EQ(ofShorts.computeSR(shorts.data()), ofFloats.computeSR(floats.data()));
  for (std::size_t i = 0; i < shorts.size(); ++i) {
    ASSERT_EQ(shorts[i], static_cast<short>(floats[i]));
  }
}

TEST(SuperResolutionTest, ShiftCoverageIsTheBilinearHistogramOfTheShifts) {
  SuperResolution engine(64, 48, 3, 2);
  engine.setReferenceIndex(2);
  Image out;
  compute(engine, makeBurst({64, 48, {{0, 0}, {0.25f, -0.3f}, {-0.4f, 0.1f}}}).frames, out);
  engine.computeQuality_();
  cv::Mat_<float> q, columns, rows;
  engine.getQuality(q);
  std::vector<PointF> shifts;
  engine.getCompleteShifts(shifts);  // within half a pixel, so they are the fractional ones too
  cv::reduce(q, columns, 0, cv::REDUCE_SUM);
  cv::reduce(q, rows, 1, cv::REDUCE_SUM);
  EXPECT_NEAR(columns(1) + 2 * columns(2), 1 + 2 * (shifts[0].x + shifts[1].x + shifts[2].x) / 3, 1e-5);
  EXPECT_NEAR(rows(1) + 2 * rows(2), 1 + 2 * (shifts[0].y + shifts[1].y + shifts[2].y) / 3, 1e-5);
  EXPECT_NEAR(cv::sum(q)[0], 1, 1e-5);
}

/// Two exposures of a sensor whose pixels all have slope 0.02 and offset 0, to be spoilt.
struct Calibration {
  cv::Mat_<short> nucLow = cv::Mat_<short>(32, 40, short{1000});
  cv::Mat_<float> radLow = cv::Mat_<float>(32, 40, 20.0f);
  cv::Mat_<short> nucHigh = cv::Mat_<short>(32, 40, short{3000});
  cv::Mat_<float> radHigh = cv::Mat_<float>(32, 40, 60.0f);

  void set(SuperResolution& engine) const { engine.setNucToRad(nucLow, radLow, nucHigh, radHigh); }
};

TEST(SuperResolutionTest, ConvertsCountsByTwoExposures) {
  SuperResolution engine(40, 32, 1, 2);
  Calibration c;
  c.nucHigh(3, 4) = c.nucLow(3, 4);                    // no line
  c.nucHigh(10, 10) = 1001, c.radHigh(10, 10) = 5020;  // slope 5000
  c.radLow(12, 12) = 0, c.nucHigh(12, 12) = 1050;      // offset -1200, an outlier though the values are none
  c.nucLow(20, 5) = -32768, c.nucHigh(20, 5) = 32767;  // more than 16 bits apart
  c.radLow(20, 5) = -327.68f, c.radHigh(20, 5) = 327.67f;
  c.set(engine);

  cv::Mat_<short> nuc(32, 40, short{2000});
  nuc(6, 6) = 32767, nuc(12, 12) = 1020;
  engine.NucToRad(nuc);
  cv::Mat_<float> rad = engine.getRadiometricFrame();
  EXPECT_TRUE(std::isnan(rad(3, 4)));
  EXPECT_NEAR(rad(6, 6), 655.34, 1e-2);
  EXPECT_NEAR(rad(20, 5), 20, 1e-2);
  rad(3, 4) = rad(6, 6) = rad(20, 5) = 40;
  EXPECT_LT(cv::norm(rad, cv::Mat_<float>(32, 40, 40.0f), cv::NORM_INF), 1e-3);
}

TEST(SuperResolutionTest, CalibrationsMayBeLargerThanTheFrame) {
  SuperResolution engine(40, 32, 1, 2);
  Calibration c;
  cv::copyMakeBorder(c.radLow, c.radLow, 0, 3, 0, 2, cv::BORDER_CONSTANT, 1e9);
  c.set(engine);  // as large as the first of the four
  engine.NucToRad(cv::Mat_<short>(5, 7, short{2000}));
  EXPECT_EQ(cv::norm(engine.getRadiometricFrame(), cv::Mat_<float>(5, 7, 40.0f), cv::NORM_INF), 0);
  EXPECT_EQ(textThrownBy([&] { engine.NucToRad(cv::Mat_<short>(33, 40, short{2000})); }),
            "exception: NucToRad() not initialized");
}

TEST(SuperResolutionTest, StructureOfAnyElementType) {
  const SuperResolution engine(40, 32, 1, 2);
  EXPECT_TRUE(engine.checkImageStructureQuality(cv::Mat_<double>({1.5, 3.5})));
  EXPECT_FALSE(engine.checkImageStructureQuality(cv::Mat_<int>({7, 8})));
  EXPECT_TRUE(engine.checkImageStructureQuality(cv::Mat_<cv::Vec2s>(1, 1, cv::Vec2s(-1, 1))));
  EXPECT_FALSE(engine.checkImageStructureQuality(cv::Mat_<unsigned char>()));
}

TEST(SuperResolutionTest, SimpleCombineDoublesWhateverTheFactor) {
  SuperResolution engine(40, 32, 1, 3);
  Image out, frame = randomImage(40 * 32, 290, 310, 3);
  compute(engine, {frame}, out);
  engine.simpleCombine();
  engine.saveFrame(out.data());
  for (const auto& [x, y, sameX, sameY] : {std::tuple(7, 9, 6, 8), {119, 95, 78, 62}, {100, 3, 79, 2}}) {
    EXPECT_EQ(out[static_cast<std::size_t>(y * 120 + x)], out[static_cast<std::size_t>(sameY * 120 + sameX)]);
  }
  EXPECT_NE(out[0], out[2]);
}

TEST(SuperResolutionTest, RepairsRadiometricOutliersInRasterOrder) {
  SuperResolution engine(40, 32, 1, 2);
  for (const auto& [values, expected] :
       std::vector<std::pair<Image, Image>>{{{999.5f, -999.5f}, {999.5f, -999.5f}},
                                            {{-1000, 20}, {20, 20}},
                                            {{10, 5000, -5000, 40}, {10, 10, 25, 40}},    // the second already repaired
                                            {{5000, 5000, 30}, {notANumber, 30, 30}}}) {  // the first has no neighbour
    // Radiometric values are the low exposure's at its own counts.
    const int size = static_cast<int>(values.size());
    const cv::Mat_<float> low = cv::Mat_<float>(values, true).reshape(1, 1);
    engine.setNucToRad(cv::Mat_<short>(1, size, short{0}), low, cv::Mat_<short>(1, size, short{1}), low);
    engine.NucToRad(cv::Mat_<short>(1, size, short{0}));
    const cv::Mat_<float> rad = engine.getRadiometricFrame();
    EXPECT_TRUE(sameBits({rad.begin(), rad.end()}, expected)) << rad;
  }
}

TEST(SuperResolutionTest, ProcessesRawFramesOneByOne) {
  SuperResolution raw(40, 32, 5, 2), converted(40, 32, 5, 2);
  Image image(80 * 64), expected(80 * 64);
  std::vector<short> counts(40 * 32);
  const auto process = [&] { return raw.processFrame2(counts.data(), image.data()); };
  EXPECT_EQ(textThrownBy(process), "exception: NucToRad() not initialized");
  Calibration other;
  other.radHigh = cv::Mat_<float>(31, 40, 60.0f);
  EXPECT_EQ(textThrownBy([&] { other.set(raw); }), "exception: A calibration image is smaller than the first");
  other.nucLow = other.nucHigh = cv::Mat_<short>(31, 40, short{7});
  other.radLow = other.radHigh;
  other.set(raw);
  EXPECT_EQ(textThrownBy(process), "exception: NucToRad() not initialized") << "calibrated for another size";

  Calibration().set(raw);
  EXPECT_THROW(raw.processFrame2(nullptr, image.data()), Exception);
  for (const Image& frame : makeBurst({40, 32}).frames) {
    Image radiometric;
    for (std::size_t i = 0; i < frame.size(); ++i) {
      counts[i] = static_cast<short>(50 * frame[i]);
      radiometric.push_back(static_cast<float>(counts[i]) * 0.02f);
    }
    converted.addFrame(radiometric.data());
    EXPECT_NEAR(process(), converted.computeSR(expected.data()), 0.01);
  }
  EXPECT_LT(distance(image, expected, 80, 12), 0.01);
}

}  // namespace
}  // namespace movra::vision
