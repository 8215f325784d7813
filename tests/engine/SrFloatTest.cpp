#include "vision/superresolution/SrFloat.h"

#include <memory>
#include <sstream>

#include "tests/support/SilentConsole.h"
#include "tests/support/Test.h"
#include "vision/superresolution/detail/badpixels/ValueKey.h"
#include "vision/superresolution/detail/engine/BurstJudgement.h"
#include "vision/superresolution/detail/solver/ReconstructionSize.h"

namespace movra::vision {
namespace {

using namespace movra::test;

using Engine = SrFloat<SrFloatRegistration2>;

constexpr int width = 80;
constexpr int height = 60;
constexpr int pixels = width * height;

class SrFloatTest : public ::testing::Test {
 protected:
  // The first engine of the process settles the coverage limit of all: 5, of factor 2. It need not succeed.
  static void SetUpTestSuite() {
    cv::setNumThreads(1);
    const SilentConsole silent;
    Engine(4, 4, 1, 2).computeSR(nullptr);
  }

  const SilentConsole report;
};

std::vector<Image> framesOf(const std::vector<Shift>& shifts) {
  return makeBurst({width, height, shifts}).frames;
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

template <class AnyEngine>
Result reconstruct(AnyEngine& engine) {
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

const std::vector<Shift> someShifts{{0.31f, -0.22f},  {0, 0},       {-1.44f, 0.37f}, {0.18f, 2.46f},
                                    {-0.27f, -0.39f}, {1.3f, 1.1f}, {-0.8f, 0.6f}};

TEST_F(SrFloatTest, SettersRejectWithTheirTextAndKeepTheValue) {
  Engine engine(161, 9, 5, 1.5f);
  EXPECT_EQ(engine.getInputSize(), 161 * 9);
  EXPECT_EQ(engine.getOutputSize(), 241 * 13);
  EXPECT_EQ(engine.getWindowSize(), 5);
  EXPECT_EQ(engine.getMinStructureThreshold(), 2);
  expectSettersRejectWithTheirTexts(engine);
}

TEST_F(SrFloatTest, SizesMustFit) {
  for (const auto& [w, h, n, f] : {std::tuple(-1, 4, 5, 2.0f), std::tuple(4, 4, -1, 2.0f),
                                   std::tuple(65536, 65536, 5, 2.0f), std::tuple(4, 4, 5, infinity)}) {
    EXPECT_THROW(Engine(w, h, n, f), std::bad_array_new_length) << w << " x " << h << ", " << n << ", " << f;
  }
  EXPECT_EQ(textThrownBy([] { Engine(4, 4, 0, 2); }), "Invalid reference index specified.");
  SrFloat<SrFloatRegistration1> small(8, 6, 5, 2);  // takes a Gaussian that fits
  expectSettersRejectWithTheirTexts(small);
  EXPECT_EQ(small.addFrame(Image(48, 3).data()), 0);
}

TEST_F(SrFloatTest, AnEmptyWindowFailsToRegister) {
  Engine engine(width, height, 3, 2);
  Result result = reconstruct(engine);
  EXPECT_EQ(result.status, -998);
  EXPECT_EQ(result.image, Image(result.image.size(), -1));
  EXPECT_EQ(report.text(), "++++++++++ SrFloat ++++++++++\n");
  const Image flat(pixels, 25);
  engine.addFrame(flat.data());
  EXPECT_EQ(reconstruct(engine).status, 1);  // the reference alone needs no corners
  engine.addFrame(flat.data());
  EXPECT_EQ(reconstruct(engine).status, -998);
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
  EXPECT_EQ(cv::countNonZero(masks[1] == 1), pixels);
  EXPECT_LT(cv::countNonZero(masks[0] == 1), pixels);

  const Result pair = reconstruct(*engineWith({frames[0], frames[1]}));
  EXPECT_EQ(pair.shifts.at(0), Shift(0, 0));  // fewer than the reference index counts back

  rolled->clearFrames();
  const std::vector<Shift> before = result.shifts;
  EXPECT_EQ(reconstruct(*rolled).shifts, before);  // until the next registration
  for (int i = 0; i < 2; ++i) {
    rolled->addFrame(frames[i].data());
  }
  Result again = reconstruct(*rolled);
  ASSERT_EQ(again.shifts.size(), 5u);  // what is beyond the frames held is older
  again.shifts.resize(2);
  expectSame(again, pair);
}

TEST_F(SrFloatTest, JudgesTheBurst) {
  const Image still = framesOf({{0, 0}})[0];
  EXPECT_EQ(reconstruct(*engineWith({5, still})).status, 2);  // all positions, all frames
  EXPECT_EQ(reconstruct(*engineWith({4, still})).status, 1.75f);

  // A displacement beyond a tenth of the height wins over masks; the image is made in both cases.
  for (const auto& [shift, regError, status] :
       {std::tuple(Shift(6.4f, 0), 1e-4f, -6), std::tuple(Shift(0, -7.3f), 1e-30f, -6),
        std::tuple(Shift(5.6f, 0), 1e-30f, -3)}) {
    const auto engine = engineWith(framesOf({{0, 0}, shift}));
    engine->setRegError(regError);
    const Result result = reconstruct(*engine);
    EXPECT_EQ(result.status, status) << shift;
    EXPECT_NEAR(cv::mean(result.image)[0], cv::mean(still)[0], 0.5);
  }

  const std::vector<char> nowhere(12, 0);
  const char* masks[] = {nowhere.data(), nowhere.data()};
  EXPECT_EQ(detail::srFactor(2, masks, 12, 5), 0.75f);
  EXPECT_EQ(detail::coverageLimit(1.5f), 3);
}

TEST_F(SrFloatTest, OtherFactorsCountCoverageAsTheFirstEngineDid) {
  const Image still = framesOf({{0, 0}})[0];
  for (const float factor : {3.0f, 1.0f, 2.5f}) {
    Engine engine(width, height, 6, factor);
    for (int i = 0; i < 6; ++i) {
      engine.addFrame(still.data());
    }
    cv::Mat_<float> out;
    EXPECT_EQ(engine.computeSR(out), 2) << factor;
    EXPECT_EQ(out.size(), cv::Size(static_cast<int>(width * factor), static_cast<int>(height * factor)));
  }
}

/// Made for factor 2; with a small one the image means little, but every access stays inside its arrays.
TEST_F(SrFloatTest, SmallFactorsAreSafe) {
  const Image still = framesOf({{0, 0}})[0];
  for (const float factor : {0.0f, 0.05f, 0.3f, 0.5f, notANumber}) {
    const detail::ReconstructionSize size = detail::reconstructionSize(width, height, 1, factor);
    EXPECT_LE(size.hrWidth, size.paddedWidth) << factor;  // the result is cut out of the padded image
    EXPECT_LE(size.hrHeight, size.paddedHeight) << factor;
    Engine engine(width, height, 1, factor);
    engine.addFrame(still.data());
    cv::Mat_<float> out;
    EXPECT_GT(engine.computeSR(out), 0) << factor;
  }
}

TEST_F(SrFloatTest, WritesThePartOfAMatrixThatItIsGivenAndNoOther) {
  const auto engine = engineWith(framesOf({{0, 0}, {0.4f, 0.3f}}));
  const Result expected = reconstruct(*engine);
  cv::Mat_<float> canvas(2 * height + 2, 2 * width + 3, 7.0f);
  cv::Mat_<float> part = canvas(cv::Rect(1, 1, 2 * width, 2 * height));
  EXPECT_EQ(engine->computeSR(part), expected.status);
  const cv::Mat_<float> dense = part.clone();
  EXPECT_EQ(Image(dense.begin(), dense.end()), expected.image);
  part = 7.0f;
  EXPECT_EQ(cv::countNonZero(canvas != 7.0f), 0);
  cv::Mat_<unsigned char> margin(height + 2, width + 3, static_cast<unsigned char>(7));
  std::vector<cv::Mat_<unsigned char>> masks{margin(cv::Rect(1, 1, width, height))};
  engine->getMasks(masks);
  EXPECT_EQ(cv::countNonZero(margin == 7), margin.size().area() - pixels);
  EXPECT_EQ(cv::countNonZero(masks[0] == 7), 0);
  EXPECT_EQ(part.data, canvas.ptr(1, 1));
  EXPECT_THROW(engine->saveFrame(nullptr), Exception);
}

TEST_F(SrFloatTest, BeatsBicubicEnlargementAndReportsSixLines) {
  const SyntheticBurst burst = makeBurst({width, height, smallShifts, 0.02});
  const auto engine = engineWith(burst.frames);
  const Result result = reconstruct(*engine);
  Image saved(burst.truth.size());
  engine->saveFrame(saved.data());
  EXPECT_EQ(saved, result.image);
  EXPECT_GT(result.status, 1.9f);
  EXPECT_GT(gainOverBicubic(result.image, burst, 1), 3) << "dB";

  std::istringstream lines(report.text());
  std::string text;
  for (std::string line; std::getline(lines, line); text += line + '\n') {
    const auto first = line.find_first_of("0123456789"), last = line.find_last_of("0123456789");
    if (first != std::string::npos) {
      line.replace(first, last + 1 - first, "T");
    }
  }
  EXPECT_EQ(text,
            "++++++++++ SrFloat ++++++++++\n"
            " registration:         T[ms]\n"
            " large_displacement:   T[ms]\n"
            " minimization:         T[ms]\n"
            " save+srfactor calc:   T[ms]\n"
            "+++++++++++++++++++++++++++++\n");
}

template <class AnyEngine>
void expectDigests(std::uint32_t ofShifts, std::uint32_t ofImage) {
  const std::vector<Image> frames = makeBurst({width, height, someShifts, 0.1}).frames;
  onEveryInstructionSet([&] {
    AnyEngine engine(width, height, 5, 2);
    engine.setReferenceIndex(3);
    for (const Image& frame : frames) {
      engine.addFrame(frame.data());
    }
    const Result result = reconstruct(engine);
    Image shifts;
    for (const Shift& shift : result.shifts) {
      shifts.insert(shifts.end(), {shift.x, shift.y});
    }
    EXPECT_EQ(digest(shifts), ofShifts);
    EXPECT_EQ(digest(result.image), ofImage);
  });
}

// Taken with g++ 12.2 on x86-64. They may change only with an entry under "Numerics" in the changelog.
TEST_F(SrFloatTest, RegistrationAndImageHaveTheSameBitsInEveryBuildAndOnEveryProcessor) {
  expectDigests<Engine>(2517962033u, 2173453341u);
  expectDigests<SrFloat<SrFloatRegistration1>>(978509751u, 3683691585u);
}

TEST_F(SrFloatTest, ARejectedFrameStaysInStepInAllStores) {
  std::vector<Image> frames = framesOf({{0.3f, 0.2f}, {0, 0}, {-0.6f, 1.4f}, {1.2f, -0.7f}});
  const auto engine = engineWith({frames[0]});
  Image broken = frames[1];
  for (int k = 0; k < 11; ++k)  // pairs: the first of each cannot be repaired from its neighbours
    broken[(8 + 4 * k) * width + 10] = broken[(8 + 4 * k) * width + 11] = notANumber;
  EXPECT_EQ(textThrownBy([&] { engine->addFrame(broken.data()); }),
            "exception: Too many defect pixels. No processing possible.");
  for (const std::size_t i : {2u, 3u}) {
    engine->addFrame(frames[i].data());
  }
  engine->setReferenceIndex(0);
  const Result result = reconstruct(*engine);
  ASSERT_EQ(result.shifts.size(), 4u);
  EXPECT_NEAR(result.shifts[0].x, 0.3 - 1.2, 0.1);
  EXPECT_NEAR(result.shifts[2].y, 1.4 + 0.7, 0.1);
  EXPECT_TRUE(isFinite(result.image));
}

TEST_F(SrFloatTest, RepairsBadPixelsOnTheWayInAndOut) {
  std::vector<Image> frames = framesOf({someShifts.begin(), someShifts.begin() + 5});
  const Result clean = reconstruct(*engineWith(frames));
  const int place = 30 * width + 40;
  for (Image& frame : frames) {
    frame[place] = 9000;  // a temperature that cannot be
    frame[place - 20] = notANumber;
    detail::setBits(frame[place + 5 * width], 129);
    detail::setBits(frame[place - 5 * width], 130);
  }
  const Result repaired = reconstruct(*engineWith(frames));
  EXPECT_TRUE(isFinite(repaired.image));
  const double largest = cv::norm(repaired.image, clean.image, cv::NORM_INF);
  EXPECT_GT(largest, 0);
  EXPECT_LT(largest, 4);  // kelvin, where a pixel is gone

  Engine engine(width, height, 5, 2);
  const Image raw(pixels, 6000);
  engine.setDataIsNUC(true);
  EXPECT_EQ(engine.addFrame(raw.data()), 0);
}

TEST_F(SrFloatTest, RejectsMissingAndSmallFrames) {
  Engine engine(width, height, 2, 2);
  EXPECT_THROW(engine.addFrame(static_cast<const float*>(nullptr)), Exception);
  EXPECT_THROW(engine.addFrame(cv::Mat_<float>(height, width - 1, 1.0f)), Exception);
  EXPECT_EQ(reconstruct(engine).status, -998);                          // none of them is in the window
  EXPECT_EQ(engine.addFrame(cv::Mat_<float>(width, height, 1.0f)), 0);  // as many pixels, whatever the shape
  textThrownBy([&] { engine.addFrame(Image(pixels, notANumber).data()); });
  EXPECT_EQ(reconstruct(engine).status, -998);  // the second frame cannot be tracked
}

}  // namespace
}  // namespace movra::vision
