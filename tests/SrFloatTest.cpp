#include "vision/superresolution/SrFloat.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include "movra/Exception.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/detail/BurstJudgement.h"

namespace movra::vision {
namespace {

using test::Image;
using test::Shift;

using Engine = SrFloat<SrFloatRegistration2>;

constexpr int width = 80;
constexpr int height = 60;
constexpr int pixels = width * height;
constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

// Keeps the engines' reports off the test's output.
class SrFloatTest : public ::testing::Test {
 protected:
  // The first engine of the process settles the coverage limit of all: 5, of factor 2. It need not succeed.
  static void SetUpTestSuite() {
    cv::setNumThreads(1);
    std::ostringstream unread;
    std::streambuf* before = std::cout.rdbuf(unread.rdbuf());
    Engine(4, 4, 1, 2).computeSR(nullptr);
    std::cout.rdbuf(before);
  }

  void SetUp() override { console = std::cout.rdbuf(report.rdbuf()); }
  void TearDown() override { std::cout.rdbuf(console); }

  std::ostringstream report;

 private:
  std::streambuf* console = nullptr;
};

std::vector<Image> framesOf(const std::vector<Shift>& shifts, double noise = 0) {
  test::BurstRecipe recipe;
  recipe.width = width;
  recipe.height = height;
  recipe.shifts = shifts;
  recipe.noise = noise;
  return test::makeBurst(recipe).frames;
}

std::unique_ptr<Engine> engineWith(const std::vector<Image>& frames, int window = 5, int reference = 3) {
  auto engine = std::make_unique<Engine>(width, height, window, 2.0f);
  engine->setReferenceIndex(reference);
  for (const Image& frame : frames) {
    EXPECT_EQ(engine->addFrame(frame.data()), 0);
  }
  return engine;
}

struct Result {
  float status;
  Image image;
  std::vector<Shift> shifts;
};

Result reconstruct(Engine& engine) {
  Result result{0, Image(static_cast<std::size_t>(engine.getOutputSize()), -1), {}};
  result.status = engine.computeSR(result.image.data());
  engine.getCompleteShifts(result.shifts);
  return result;
}

void expectSame(const Result& a, const Result& b) {
  EXPECT_EQ(a.status, b.status);
  EXPECT_EQ(a.shifts, b.shifts);
  EXPECT_EQ(a.image, b.image);
}

bool isFinite(const Image& image) {
  return std::all_of(image.begin(), image.end(), [](float v) { return std::isfinite(v); });
}

template <class Call>
std::string textThrownBy(Call call) {
  try {
    call();
  } catch (const char* text) {
    return text;
  } catch (const Exception& e) {
    return std::string("exception: ") + e.what();
  }
  return "";
}

const std::vector<Shift> someShifts{{0.31f, -0.22f},  {0, 0},       {-1.44f, 0.37f}, {0.18f, 2.46f},
                                    {-0.27f, -0.39f}, {1.3f, 1.1f}, {-0.8f, 0.6f}};

TEST_F(SrFloatTest, SettersRejectWithTheirTextAndKeepTheValue) {
  Engine engine(16, 12, 5, 2);
  const auto check = [](auto set, auto get, auto accepted, auto rejected, const std::string& text) {
    for (const auto value : accepted) {
      EXPECT_EQ(textThrownBy([&] { set(value); }), "") << value;
      EXPECT_TRUE(get() == value || std::isnan(static_cast<float>(value))) << value;
      const auto kept = get();
      for (const auto bad : rejected) {
        EXPECT_EQ(textThrownBy([&] { set(bad); }), text) << bad;
        EXPECT_TRUE(std::memcmp(&kept, std::array{get()}.data(), sizeof kept) == 0) << bad;
      }
    }
  };
  check([&](int i) { engine.setReferenceIndex(i); }, [&] { return engine.getReferenceIndex(); },
        std::vector{0, 4}, std::vector{-1, 5, std::numeric_limits<int>::min()},
        "Invalid reference index specified.");
  check([&](float e) { engine.setRegError(e); }, [&] { return engine.getRegError(); },
        std::vector{1.0f, 1e-30f, nan}, std::vector{0.0f, -1.0f, std::nextafter(1.0f, 2.0f), infinity},
        "Invalid maximum registration error specified.");
  check([&](float s) { engine.setPsfSigma(s); }, [&] { return engine.getPsfSigma(); },
        std::vector{0.5f, nan, std::numeric_limits<float>::denorm_min(), infinity},
        std::vector{0.0f, -0.1f, -infinity}, "Invalid standard deviation of the sensor psf specified.");
  check([&](float w) { engine.setWeightTV(w); }, [&] { return engine.getWeightTV(); },
        std::vector{1.0f, nan, infinity}, std::vector{0.999f, 0.0f, -5.0f},
        "Invalid total-variation term weight specified.");
  check([&](float r) { engine.setRelativeResidue(r); }, [&] { return engine.getRelativeResidue(); },
        std::vector{std::nextafter(1e-6f, 1.0f), nan, 3.0f},
        std::vector{1e-6f, 0.0f, -infinity},  // 1e-6f lies below 1e-6
        "Invalid total-variation term weight specified.");
  check([&](int n) { engine.setMaxCGIters(n); }, [&] { return engine.getMaxCGIters(); }, std::vector{1, 1000},
        std::vector{0, -3}, "Invalid maximum number of iterations specified.");
  check([&](float t) { engine.setMinStructureThreshold(t); },
        [&] { return engine.getMinStructureThreshold(); }, std::vector{-1.0f, nan, infinity},
        std::vector<float>{}, "");
}

TEST_F(SrFloatTest, DerivesItsSizesAndDefaults) {
  Engine engine(161, 9, 5, 1.5f);
  EXPECT_EQ(engine.getInputSize(), 161 * 9);
  EXPECT_EQ(engine.getOutputSize(), 241 * 13);
  EXPECT_EQ(engine.getWindowSize(), 5);
  EXPECT_EQ(engine.getReferenceIndex(), 0);
  EXPECT_EQ(engine.getRegError(), 1e-4f);
  EXPECT_EQ(engine.getPsfSigma(), 0.683f);
  EXPECT_EQ(engine.getWeightTV(), 400);
  EXPECT_EQ(engine.getRelativeResidue(), 0.007f);
  EXPECT_EQ(engine.getMaxCGIters(), 8);
  EXPECT_EQ(engine.getMinStructureThreshold(), 2);

  const int most = std::numeric_limits<int>::max();
  for (const auto& [w, h, n, f] :
       {std::tuple(-1, 4, 5, 2.0f), std::tuple(4, -1, 5, 2.0f), std::tuple(4, 4, -1, 2.0f),
        std::tuple(-4, -4, 5, 2.0f), std::tuple(65536, 65536, 5, 2.0f), std::tuple(most, 1, 5, 2.0f),
        std::tuple(4, 4, 5, 1e9f), std::tuple(4, 4, 5, infinity), std::tuple(4, 4, 5, -2.0f)}) {
    EXPECT_THROW(Engine(w, h, n, f), std::bad_array_new_length) << w << " x " << h << ", " << n << ", " << f;
  }
  EXPECT_EQ(textThrownBy([] { Engine(4, 4, 0, 2); }), "Invalid reference index specified.");
}

TEST_F(SrFloatTest, AnEmptyWindowFailsToRegister) {
  Engine engine(width, height, 3, 2);
  Result result = reconstruct(engine);
  EXPECT_EQ(result.status, -998);
  EXPECT_EQ(result.image, Image(result.image.size(), -1));
  EXPECT_TRUE(result.shifts.empty());
  EXPECT_EQ(report.str(), "++++++++++ SrFloat ++++++++++\n");

  std::vector<cv::Mat_<unsigned char>> masks(7);
  engine.getMasks(masks);
  ASSERT_EQ(masks.size(), 3u);
  EXPECT_EQ(masks[2].size(), cv::Size(width, height));

  const Image flat(pixels, 25);
  engine.addFrame(flat.data());
  EXPECT_EQ(reconstruct(engine).status, -998);  // no corners
}

TEST_F(SrFloatTest, TheWindowHoldsTheNewestFramesOldestFirst) {
  const std::vector<Image> frames = framesOf(someShifts);
  const auto rolled = engineWith(frames);
  const auto fresh = engineWith({frames.begin() + 2, frames.end()});
  const Result result = reconstruct(*rolled);
  expectSame(result, reconstruct(*fresh));
  ASSERT_EQ(result.shifts.size(), 5u);
  for (std::size_t i = 0; i < 5; ++i) {  // slot 1 is the reference: index 3 counts back from the newest
    EXPECT_NEAR(result.shifts[i].x, someShifts[i + 2].x - someShifts[3].x, 0.1);
    EXPECT_NEAR(result.shifts[i].y, someShifts[i + 2].y - someShifts[3].y, 0.1);
  }

  std::vector<cv::Mat_<unsigned char>> masks;
  rolled->getMasks(masks);
  EXPECT_EQ(cv::countNonZero(masks.at(1) == 1), pixels);
  EXPECT_LT(cv::countNonZero(masks.at(0) == 1), pixels);

  const auto single = engineWith({frames[0], frames[4]}, 1, 0);
  const Result alone = reconstruct(*single);
  EXPECT_EQ(alone.status, 1);  // one frame everywhere
  expectSame(alone, reconstruct(*engineWith({frames[4]}, 1, 0)));

  const Result pair =
      reconstruct(*engineWith({frames[0], frames[1]}));  // fewer than the reference index counts back
  EXPECT_EQ(pair.shifts.at(0), Shift(0, 0));
}

TEST_F(SrFloatTest, ClearingEmptiesAllStores) {
  const std::vector<Image> frames = framesOf(someShifts);
  const auto engine = engineWith(frames);
  reconstruct(*engine);
  engine->clearFrames();
  std::vector<Shift> shifts(3);
  engine->getCompleteShifts(shifts);
  EXPECT_TRUE(shifts.empty());
  EXPECT_EQ(reconstruct(*engine).status, -998);
  for (int i = 0; i < 3; ++i) {
    engine->addFrame(frames[i].data());
  }
  const Result refilled = reconstruct(*engine);
  EXPECT_GT(refilled.status, 1.4f);
  expectSame(refilled, reconstruct(*engineWith({frames.begin(), frames.begin() + 3})));
}

TEST_F(SrFloatTest, JudgesTheBurst) {
  const Image still = framesOf({{0, 0}})[0];
  EXPECT_EQ(reconstruct(*engineWith({5, still})).status, 2);  // all positions, all frames
  EXPECT_EQ(reconstruct(*engineWith({4, still})).status, 1.75f);
  EXPECT_EQ(reconstruct(*engineWith({7, still}, 7)).status, 2);  // five frames count at most

  // A displacement beyond a tenth of the height wins over masks; the image is made in both cases.
  for (const auto& [shift, regError, status] :
       {std::tuple(Shift(6.4f, 0), 1e-4f, -6), std::tuple(Shift(0, -7.3f), 1e-30f, -6),
        std::tuple(Shift(5.6f, 0), 1e-30f, -3)}) {
    const auto engine = engineWith(framesOf({{0, 0}, shift}));
    engine->setRegError(regError);
    const Result result = reconstruct(*engine);
    EXPECT_EQ(result.status, status) << shift;
    EXPECT_TRUE(isFinite(result.image));
    EXPECT_NEAR(cv::mean(result.image)[0], cv::mean(framesOf({{0, 0}})[0])[0], 0.5);
  }

  EXPECT_FALSE(detail::isLargeDisplacement(12, -12, 129));
  EXPECT_TRUE(detail::isLargeDisplacement(12.01f, 0, 120));
  EXPECT_TRUE(detail::isLargeDisplacement(0, -12.5f, 120));
  EXPECT_FALSE(detail::isLargeDisplacement(0, 0, 9));
  EXPECT_TRUE(detail::isLargeDisplacement(1e-9f, 0, 9));
  EXPECT_TRUE(detail::isMaskedTooMuch(50, 10, 10));
  EXPECT_FALSE(detail::isMaskedTooMuch(51, 10, 10));

  const std::vector<char> nowhere(12, 0);
  const char* masks[] = {nowhere.data(), nowhere.data()};
  EXPECT_EQ(detail::srFactor(2, masks, 12, 5), 0.75f);
  EXPECT_EQ(detail::coverageLimit(1.5f), 3);
}

TEST_F(SrFloatTest, OtherFactorsCountCoverageAsTheFirstEngineDid) {
  const Image still = framesOf({{0, 0}})[0];
  for (const float factor : {3.0f, 1.0f, 1.5f, 2.5f}) {
    Engine engine(width, height, 6, factor);
    for (int i = 0; i < 6; ++i) {
      engine.addFrame(still.data());
    }
    cv::Mat_<float> out;
    EXPECT_EQ(engine.computeSR(out), 2) << factor;
    EXPECT_EQ(out.size(), cv::Size(static_cast<int>(width * factor), static_cast<int>(height * factor)));
  }
}

TEST_F(SrFloatTest, ReportsSixLines) {
  const auto engine = engineWith(framesOf({{0, 0}, {0.4f, 0.3f}}));
  reconstruct(*engine);
  std::istringstream lines(report.str());
  std::string line;
  std::string withoutTimes;
  while (std::getline(lines, line)) {
    const std::size_t unit = line.find("[ms]");
    if (unit != std::string::npos) {
      EXPECT_GE(std::stod(line.substr(23, unit)), 0) << line;
      line.erase(23, unit - 23);
    }
    withoutTimes += line + "\n";
  }
  EXPECT_EQ(withoutTimes,
            "++++++++++ SrFloat ++++++++++\n"
            " registration:         [ms]\n"
            " large_displacement:   [ms]\n"
            " minimization:         [ms]\n"
            " save+srfactor calc:   [ms]\n"
            "+++++++++++++++++++++++++++++\n");
}

TEST_F(SrFloatTest, BeatsBicubicEnlargement) {
  test::BurstRecipe recipe;
  recipe.width = width;
  recipe.height = height;
  recipe.noise = 0.02;
  const test::SyntheticBurst burst = test::makeBurst(recipe);
  const auto engine = engineWith(burst.frames);
  Image saved(burst.truth.size());
  const Result result = reconstruct(*engine);
  engine->saveFrame(saved.data());
  EXPECT_EQ(saved, result.image);
  EXPECT_GT(result.status, 1.9f);

  Image frame = burst.frames[1];
  cv::Mat_<float> bicubic;
  cv::resize(cv::Mat_<float>(height, width, frame.data()), bicubic, {}, 2, 2, cv::INTER_CUBIC);
  const auto squaredError = [&](const float* image) {
    double sum = 0;
    for (int y = 8; y < 2 * height - 8; ++y) {
      for (int x = 8; x < 2 * width - 8; ++x) {
        const int i = y * 2 * width + x;
        const double difference = static_cast<double>(image[i]) - static_cast<double>(burst.truth[i]);
        sum += difference * difference;
      }
    }
    return sum;
  };
  const double gain = 10 * std::log10(squaredError(bicubic[0]) / squaredError(result.image.data()));
  RecordProperty("gain", std::to_string(gain));
  EXPECT_GT(gain, 3) << "dB";
}

TEST_F(SrFloatTest, ARejectedFrameStaysInStepInAllStores) {
  std::vector<Image> frames = framesOf({{0.3f, 0.2f}, {0, 0}, {-0.6f, 1.4f}, {1.2f, -0.7f}});
  const auto engine = engineWith({frames[0]});
  Image broken = frames[1];
  for (int k = 0; k < 11; ++k) {  // pairs: the first of each cannot be repaired from its neighbours
    broken[(8 + 4 * k) * width + 10] = nan;
    broken[(8 + 4 * k) * width + 11] = nan;
  }
  EXPECT_EQ(textThrownBy([&] { engine->addFrame(broken.data()); }),
            "exception: Too many defect pixels. No processing possible.");
  for (const std::size_t i : {2u, 3u}) {
    engine->addFrame(frames[i].data());
  }
  engine->setReferenceIndex(0);
  const Result result = reconstruct(*engine);
  EXPECT_NE(result.status, -998);
  ASSERT_EQ(result.shifts.size(), 4u);
  EXPECT_NEAR(result.shifts[0].x, 0.3 - 1.2, 0.1);
  EXPECT_NEAR(result.shifts[2].y, 1.4 + 0.7, 0.1);
  EXPECT_TRUE(isFinite(result.image));
}

TEST_F(SrFloatTest, RepairsBadPixelsOnTheWayInAndOut) {
  std::vector<Image> frames = framesOf({someShifts.begin(), someShifts.begin() + 5});
  const Result clean = reconstruct(*engineWith(frames));
  const auto setBits = [](float& pixel, std::uint32_t bits) { std::memcpy(&pixel, &bits, sizeof bits); };
  const int place = 30 * width + 40;
  for (Image& frame : frames) {
    frame[place] = 9000;  // a temperature that cannot be
    frame[place + 9] = infinity;
    frame[place - 20] = nan;
    setBits(frame[place + 5 * width], 129);
    setBits(frame[place - 5 * width], 130);
    setBits(frame[place - 9], 133);
  }
  const Result repaired = reconstruct(*engineWith(frames));
  EXPECT_TRUE(isFinite(repaired.image));
  double largest = 0;
  for (std::size_t i = 0; i < clean.image.size(); ++i) {
    largest = std::max(largest, std::abs(static_cast<double>(repaired.image[i] - clean.image[i])));
  }
  EXPECT_GT(largest, 0);
  EXPECT_LT(largest, 4);  // kelvin, where a pixel is gone

  Engine engine(width, height, 5, 2);
  frames[0][0] = nan;  // a corner cannot be repaired from its neighbours
  EXPECT_EQ(engine.addFrame(frames[0].data()), -2);
  Image raw(pixels, 6000);
  raw[0] = 5999;
  engine.setDataIsNUC(true);
  EXPECT_EQ(engine.addFrame(raw.data()), 0);
}

TEST_F(SrFloatTest, RefusesFramesThatAreNone) {
  Engine engine(width, height, 2, 2);
  EXPECT_THROW(engine.addFrame(static_cast<const float*>(nullptr)), Exception);
  EXPECT_THROW(engine.addFrame(cv::Mat_<float>()), Exception);
  EXPECT_THROW(engine.addFrame(cv::Mat_<float>(height, width - 1, 1.0f)), Exception);
  EXPECT_EQ(reconstruct(engine).status, -998);  // none of them is in the window

  EXPECT_EQ(engine.addFrame(cv::Mat_<float>(width, height, 1.0f)), 0);  // as many pixels, whatever the shape
  for (const float value : {nan, infinity, -infinity, 0.0f, std::numeric_limits<float>::max()}) {
    const Image image(pixels, value);
    try {
      engine.addFrame(image.data());
    } catch (const Exception& e) {
      EXPECT_STREQ(e.what(), "Too many defect pixels. No processing possible.");
    }
    EXPECT_EQ(reconstruct(engine).status, -998) << value;
  }
}

TEST_F(SrFloatTest, TakesFramesOfAnySize) {
  for (const auto& [w, h] :
       {std::pair(0, 0), std::pair(0, 9), std::pair(9, 0), std::pair(1, 1), std::pair(1, 9), std::pair(9, 1),
        std::pair(2, 2), std::pair(5, 4), std::pair(13, 11), std::pair(33, 3)}) {
    SCOPED_TRACE(::testing::Message() << w << " x " << h);
    Engine engine(w, h, 3, 2);
    for (const std::uint32_t seed : {1u, 1u, 2u}) {
      const Image image = test::randomImage(w * h + 1, 20, 30, seed);
      EXPECT_EQ(engine.addFrame(image.data()), 0);
    }
    std::vector<cv::Mat_<unsigned char>> masks;
    engine.getMasks(masks);
    cv::Mat_<float> out;
    try {
      const float status = engine.computeSR(out);
      EXPECT_TRUE(status >= 0.75f || status == -998 || status == -6 || status == -3) << status;
    } catch (const Exception& e) {
      EXPECT_STREQ(e.what(), "Too large displacement");
    }
  }
}

}  // namespace
}  // namespace movra::vision
