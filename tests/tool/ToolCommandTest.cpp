// Whole runs of the command-line tool, as a user starts it.

#include <limits>
#include <set>
#include <tuple>

#include "tests/tool/ToolRun.h"
#include "tools/movra-sr/io/BadPixelFile.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

using namespace movra::tool;

namespace {

TEST_F(ToolCommand, ASimulatedBurstBecomesSharperThanBicubic) {
  simulate();
  const Outcome made = run("reconstruct burst -o sr.tiff --preview sr.png --unit K");
  EXPECT_EQ(made.code, 0) << made.err;
  EXPECT_EQ(made.err, "");
  EXPECT_NE(made.out.find("status: good"), std::string::npos) << made.out;
  EXPECT_NE(made.out.find("reference: burst/frame_01.tiff"), std::string::npos) << made.out;
  EXPECT_EQ(made.out.find("+++"), std::string::npos) << "the engine's report: " << made.out;
  EXPECT_GT(number(made.out, "sr factor: "), 1.5);

  EXPECT_GE(psnr("sr.tiff"), psnr("burst/frame_01.tiff") + 4);
  EXPECT_EQ(movra::test::channelsOf(at("sr.png")), 3);
  EXPECT_EQ(imageOf("sr.tiff").size(), cv::Size(192, 144));

  const std::string before = readAll(at("sr.tiff"));
  EXPECT_EQ(run("reconstruct burst -o sr.tiff").code, 4);
  EXPECT_EQ(readAll(at("sr.tiff")), before);
  EXPECT_EQ(run("reconstruct burst -o sr.tiff --force").code, 0);
  expectCode(
      4, "",
      {"reconstruct burst -o burst/frame_00.tiff --force", "simulate -o burst --scene burst/truth.tiff --force"});
}

/// The image of the C interface for frames in order, the reference being the second.
cv::Mat_<float> throughCInterface(const std::vector<Frame>& frames, const char* camera) {
  const cv::Size size = frames.front().pixels.size();
  const int context = SuperResolution_init(size.width, size.height);
  SuperResolution_setCameraAndLensType(context, camera);
  for (const Frame& frame : frames) {
    SuperResolution_addImage(context, frame.pixels[0]);
  }
  cv::Mat_<float> image(2 * size.height, 2 * size.width);
  EXPECT_EQ(SuperResolution_getSuperresolutionImage(context, image[0]), SUPERRESOLUTION_SUCCESS);
  SuperResolution_release(context);
  return image;
}

TEST_F(ToolCommand, EnginesAndCInterfaceGiveTheSameImage) {
  simulate();
  std::vector<Frame> window;
  for (const std::string& file : expandFolders({at("burst")})) {
    window.push_back(readImage(file));
  }
  const auto sameBits = [](const cv::Mat_<float>& a, const cv::Mat_<float>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
  };
  ASSERT_EQ(run("reconstruct --motion global burst -o production.tiff").code, 0);
  ASSERT_EQ(run("reconstruct burst -o vector.tiff --engine vector").code, 0);
  EXPECT_EQ(difference("production.tiff", "vector.tiff"), 0);
  testing::internal::CaptureStdout();
  const cv::Mat_<float> byDefault = throughCInterface(window, "");
  const cv::Mat_<float> byCamera = throughCInterface(window, "m07 FOV 25");
  testing::internal::GetCapturedStdout();
  EXPECT_TRUE(sameBits(imageOf("production.tiff"), byDefault));
  ASSERT_EQ(run("reconstruct --motion global burst -o camera.tiff --camera 'm07 FOV 25'").code, 0);
  EXPECT_TRUE(sameBits(imageOf("camera.tiff"), byCamera));
  ASSERT_EQ(run("reconstruct burst -o table.tiff --camera 'm04 FOV 20'").code, 0);
  ASSERT_EQ(run("reconstruct burst -o area.tiff --psf-sigma 0.57735").code, 0);
  EXPECT_LT(difference("table.tiff", "area.tiff"), 1e-4);
}

TEST_F(ToolCommand, PhaseCorrelationAndReferenceEngineServeTheSameBurst) {
  simulate();
  const Outcome corners = run("reconstruct --motion global burst -o corners.tiff");
  for (const std::string other : {"--registration phase", "--engine reference"}) {
    const Outcome made = run("reconstruct burst -o sr.tiff --force --verbose " + other);
    EXPECT_EQ(made.code, 0) << made.err;
    EXPECT_NEAR(number(made.out, "sr factor: "), number(corners.out, "sr factor: "), 0.05) << other;
    EXPECT_NEAR(psnr("sr.tiff"), psnr("corners.tiff"), 0.2) << other;
    EXPECT_NE(readAll(at("sr.tiff")), readAll(at("corners.tiff"))) << other;
  }
}

TEST_F(ToolCommand, RawFramesBecomeTemperaturesByTwoExposures) {
  simulate();
  // A sensor whose pixels differ in slope and offset, and one that is stuck.
  const auto counts = [](const cv::Mat_<float>& temperatures) {
    cv::Mat_<ushort> raw(temperatures.size());
    for (int y = 0; y < raw.rows; ++y)
      for (int x = 0; x < raw.cols; ++x) {
        const float slope = 0.005f * static_cast<float>(10 + (7 * x + 3 * y) % 5);
        const float offset = static_cast<float>((x + 2 * y) % 7) - 300;
        raw(y, x) = cv::saturate_cast<ushort>((temperatures(y, x) - offset) / slope);
      }
    raw(30, 40) = 4000;
    return raw;
  };
  writeRaw(counts);
  overwrite("warm_temperatures.tiff", cv::Mat_<float>(72, 96, 45.f));

  ASSERT_EQ(run("reconstruct burst -o expected.tiff --engine reference").code, 0);
  const double expected = psnr("expected.tiff");
  for (const std::string warmest : {"warm.tiff=45", "warm.tiff=warm_temperatures.tiff"}) {
    expectCode(0, "reconstruct raw -o sr.tiff --force --engine reference --nuc-low cold.tiff=-5 --nuc-high ",
               {warmest});
    EXPECT_NEAR(psnr("sr.tiff"), expected, 1.5);
  }
  // Pixels out of range in a frame or an exposure are bad.
  const auto spoil = [&](const std::string& name, cv::Point pixel) {
    cv::Mat image;
    imageOf(name).convertTo(image, CV_16U);
    image.at<ushort>(pixel) = 65535;
    movra::test::writeTiff(at("spoiled_" + std::filesystem::path(name).filename().string()), {image});
  };
  spoil("cold.tiff", {20, 20});
  spoil("warm.tiff", {60, 50});
  spoil("raw/frame_02.tiff", {70, 30});
  std::filesystem::rename(at("spoiled_frame_02.tiff"), at("raw/frame_02.tiff"));
  for (const std::string motion : {"local", "global"}) {
    expectCode(0, "reconstruct raw -o sr.tiff --force --nuc-low spoiled_cold.tiff=-5 --nuc-high spoiled_warm.tiff=45 ",
               {"--motion " + motion});
    EXPECT_GT(psnr("sr.tiff"), expected - 2) << motion;
  }

  const auto refused = [&](const std::string& arguments, int code, const std::string& text) {
    const Outcome result = run("reconstruct --motion global -o refused.tiff " + arguments);
    EXPECT_EQ(result.code, code) << arguments << ": " << result.err;
    EXPECT_NE(result.err.find(text), std::string::npos) << arguments << ": " << result.err;
    EXPECT_FALSE(std::filesystem::exists(at("refused.tiff")));
  };
  refused("raw --nuc-low cold.tiff=-5", 2, "--nuc-high");
  refused("raw --nuc-low cold.tiff --nuc-high warm.tiff=45", 2, "cold.tiff: an exposure is");
  refused("raw --nuc-low cold.tiff=45 --nuc-high warm.tiff=45", 2, "same temperature");
  refused("raw --nuc-low cold.tiff=-5 --nuc-high burst/truth.tiff=45", 3, "truth.tiff");
  refused("burst --nuc-low cold.tiff=-5 --nuc-high warm.tiff=45", 3, "no 16-bit counts");
  refused("raw --nuc-low cold.tiff=-5 --nuc-high cold.tiff=45", 3, "equal counts");
  refused("raw --nuc-low warm.tiff=45 --nuc-high cold.tiff=-5", 2, "exchange them");

  // A camera whose counts are unsigned and lie around and above 32767.
  writeRaw([&](const cv::Mat_<float>& temperatures) { return cv::Mat_<ushort>(counts(temperatures) + 28500); });
  std::ofstream(at("one.csv")) << "x,y\n30,40\n";
  for (const std::string motion : {"local", "global"}) {
    const std::string raw = "reconstruct raw -o sr.tiff --force --motion " + motion;
    const Outcome made = run(raw + " --nuc-low cold.tiff=-5 --nuc-high warm.tiff=45");
    EXPECT_EQ(made.code, 0) << made.err;
    EXPECT_NE(made.out.find("unsigned"), std::string::npos) << made.out;
    EXPECT_GT(psnr("sr.tiff"), expected - 2) << motion;
    const double mean = cv::mean(imageOf("raw/frame_01.tiff"))[0];
    const auto inside = documentOf(raw + " --counts --bad-pixels one.csv")["inside"];
    EXPECT_NEAR(inside["mean"], mean, 100) << motion;
    EXPECT_GT(inside["minimum"], 20000) << motion;  // of the temperatures; a listed pixel is none
  }
}

TEST_F(ToolCommand, FilesFoldersAndPagesGiveTheSameImage) {
  simulate();
  std::vector<cv::Mat> pages;
  changeFrames([&](const std::string&, const cv::Mat_<float>& frame) { pages.push_back(frame); });
  movra::test::writeTiff(at("pages.tiff"), pages);
  EXPECT_EQ(run("reconstruct burst -o folder.tiff").code, 0);
  for (const std::string inputs :
       {"burst/frame_0?.tiff", "pages.tiff", "burst burst/frame_00.tiff --first 1 --frames 5"}) {
    expectCode(0, "reconstruct -o other.tiff --force ", {inputs});
    EXPECT_EQ(difference("other.tiff", "folder.tiff"), 0) << inputs;
  }
}

TEST_F(ToolCommand, BadInputIsNamedInOneLineAndNothingIsWritten) {
  simulate();
  const cv::Mat_<float> good = imageOf("burst/frame_02.tiff");
  const std::string bad = at("burst/frame_02.tiff");
  cv::Mat_<float> riddled = good.clone();
  riddled(cv::Rect(20, 20, 8, 8)) = std::numeric_limits<float>::quiet_NaN();

  const auto refused = [&](const std::string& what, const std::string& arguments, const std::string& culprit,
                           int code) {
    const Outcome result = run("reconstruct --motion global " + arguments + " -o out.tiff --preview out.png");
    EXPECT_EQ(result.code, code) << what << ": " << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << what << ": " << result.err;
    EXPECT_NE(result.err.find(culprit), std::string::npos) << what << ": " << result.err;
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      left.push_back(entry.path().filename());
    }
    EXPECT_EQ(left, std::vector<std::string>{"burst"}) << what;
  };
  const auto refusedFrame = [&](const std::string& what, const cv::Mat_<float>& image) {
    overwrite("burst/frame_02.tiff", image);
    refused(what, "burst", "frame_02.tiff", 3);
  };
  refusedFrame("another size", cv::Mat_<float>(72, 95, 1.f));
  refusedFrame("NaN", cv::Mat_<float>(72, 96, std::numeric_limits<float>::quiet_NaN()));
  refusedFrame("constant", cv::Mat_<float>(72, 96, 20.f));
  refusedFrame("counts", cv::Mat_<float>(100 * (good + 273.15)));
  refusedFrame("too many bad pixels", riddled);
  refused("NaN, without repair", "burst --engine vector", "frame_02.tiff", 3);
  writeAll(bad, "");
  refused("empty", "burst", "frame_02.tiff", 3);
  std::filesystem::remove(bad);
  refused("four frames", "burst", "five", 3);
}

TEST_F(ToolCommand, AWindowThatCannotBeAlignedIsRefusedOrCalledDegraded) {
  simulate();
  // Noise alone: corners are found, but nothing in the frames belongs together.
  cv::RNG random(3);
  cv::Mat_<float> noise(72, 96);
  random.fill(noise, cv::RNG::UNIFORM, 0, 40);
  overwrite("burst/frame_03.tiff", noise);
  const Outcome degraded = run("reconstruct --motion global burst -o out.tiff");
  EXPECT_EQ(degraded.code, 1) << degraded.out << degraded.err;
  EXPECT_EQ(degraded.out.find("status: good"), std::string::npos) << degraded.out;

  // Values within less than 2 units: aligned all the same, but the C interface calls it too little structure.
  simulate();
  const Outcome faint = run("reconstruct --motion global burst --gain 0.03 -o faint.tiff");
  EXPECT_EQ(faint.code, 1) << faint.out << faint.err;
  EXPECT_NE(faint.out.find("little structure"), std::string::npos) << faint.out;
  EXPECT_TRUE(std::filesystem::exists(at("faint.tiff")));

  EXPECT_EQ(run("simulate -o burst --size 64x48 --max-shift 40 --seed 3 --force").err, "");
  const Outcome far = run("reconstruct burst -o far.tiff --engine reference");
  EXPECT_EQ(far.code, 1);
  EXPECT_NE(far.err.find("Too large displacement"), std::string::npos) << far.err;
}

TEST_F(ToolCommand, AKnownSensorMapKeepsDefectsOutOfTheImage) {
  simulate();
  ASSERT_EQ(run("reconstruct --motion global burst -o clean.tiff").code, 0);
  std::string list = "x,y\n";
  for (int i = 0; i < 12; ++i) {
    list += std::to_string(8 + 7 * i) + "," + std::to_string(10 + 17 * i % 50) + "\n";
  }
  writeAll(at("list.csv"), list);
  changeFrames([](const std::string&, cv::Mat_<float>& frame) {
    for (int i = 0; i < 12; ++i) {
      frame(10 + 17 * i % 50, 8 + 7 * i) = 60;  // a value that could be real
    }
  });
  ASSERT_EQ(run("reconstruct --motion global burst -o spoilt.tiff").code, 0);
  const Outcome mended = run("reconstruct --motion global burst --bad-pixels list.csv -o mended.tiff");
  ASSERT_EQ(mended.code, 0) << mended.err;
  EXPECT_NE(mended.out.find("bad pixels: 12 marked by list.csv"), std::string::npos) << mended.out;
  EXPECT_GT(psnr("mended.tiff"), psnr("spoilt.tiff") + 6);
  EXPECT_GT(psnr("mended.tiff"), psnr("clean.tiff") - 2);
}

TEST_F(ToolCommand, BadPixelsAreFoundListedAndDrawn) {
  writeScene("a.png", {{{10, 20}, 0}, {{11, 20}, 65535}, {{63, 47}, 39000}});
  writeScene("b.png", {{{10, 20}, 0}, {{30, 5}, 41000}});
  const Outcome made = run("bad-pixels a.png b.png -o list.csv --picture p.png");
  EXPECT_EQ(made.code, 0) << made.err;
  EXPECT_NE(made.out.find("bad pixels: 4 in 2 frames of 64x48"), std::string::npos) << made.out;
  const BadPixelFile file = readBadPixels(at("list.csv"));
  EXPECT_TRUE(file.frameSize == cv::Size(64, 48) && movra::test::sizeOf(at("p.png")) == file.frameSize);
  std::set<std::pair<int, int>> bad;
  for (int row = 0; row < file.list.rows; ++row) {
    bad.emplace(file.list(row, 0), file.list(row, 1));
  }
  EXPECT_EQ(bad, (std::set<std::pair<int, int>>{{10, 20}, {11, 20}, {63, 47}, {30, 5}}));
  for (int row = 0; row < file.list.rows; ++row)
    for (int k = 2; k < 10; k += 2) {
      const cv::Point replacement(file.list(row, k), file.list(row, k + 1));
      EXPECT_TRUE(replacement.inside({0, 0, 64, 48}) && bad.count({replacement.x, replacement.y}) == 0);
    }
  const std::string csv = run("bad-pixels a.png --low 39000").out;
  EXPECT_EQ(csv.rfind("x,y,x1,y1,x2,y2,x3,y3,x4,y4,width,height\n10,20,", 0), 0U) << csv;
}

TEST_F(ToolCommand, WhatCannotBeSearchedForBadPixelsLeavesNoList) {
  writeScene("a.png", {});
  movra::test::writeTiff(at("half.tiff"), {cv::Mat(48, 64, CV_32F, cv::Scalar(20.5))});
  movra::test::writePng(at("small.png"), cv::Mat(40, 64, CV_16U, cv::Scalar(40000)));
  for (const auto& [arguments, code, message] : {std::tuple("a.png --high 40030", 1, "too many for defects"),
                                                 {"half.tiff", 3, "not whole numbers"},
                                                 {"a.png small.png", 3, "small.png: is 64x40"},
                                                 {"a.png --low 5 --high 5", 2, "--low must be smaller"},
                                                 {"a.png --picture list.csv", 2, "two names"},
                                                 {"a.png --picture a.png --force", 4, "one of the inputs"}}) {
    const Outcome result = run(std::string("bad-pixels -o list.csv ") + arguments);
    EXPECT_EQ(result.code, code) << arguments;
    EXPECT_NE((result.out + result.err).find(message), std::string::npos) << result.out << result.err;
    EXPECT_FALSE(std::filesystem::exists(at("list.csv"))) << arguments;
  }
}

TEST_F(ToolCommand, AWrongCommandLineIsCodeTwo) {
  expectCode(2, "",
             {"", "reconstruct", "reconstruct x.tiff", "reconstruct x.tiff -o out.jpg", "stream x.tiff -o out.png",
              "register x.tiff -o out.tiff", "sharpen x.tiff", "simulate -o z --size 9x9"});
  expectCode(
      2, "reconstruct x.tiff -o y.tiff ",
      {"--palette hot", "--preview p.png --range 5,4", "--psf-sigma nan", "--registration-error 1e-300",
       "--tv-weight 0.5", "--gain 0", "--engine turbo", "--registration magic", "--engine vector --registration phase",
       "--engine reference --registration corners", "--camera m07", "--motion local --engine vector",
       "--motion global --preset best", "--frames 0", "--reference best --motion global", "--palette hot",
       "--engine vector --bad-pixels z.csv", "--camera 'm01 FOV 1' --psf-sigma 0.5"});
}

}  // namespace
