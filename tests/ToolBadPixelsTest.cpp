// Bad-pixel lists of the command-line tool: the file, the search, the marking of frames.

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <set>

#include "tests/ToolFailure.h"
#include "tests/support/Checks.h"
#include "tests/support/TestFolder.h"
#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/BadPixelFile.h"

using namespace movra::tool;

namespace {

using List = cv::Mat_<unsigned short>;

constexpr const char* header = "x,y,x1,y1,x2,y2,x3,y3,x4,y4,width,height\n";

class ToolBadPixels : public TestFolder {
 protected:
  /// What the subcommand returns and prints.
  std::pair<ExitCode, std::string> run(const std::string& arguments) const {
    CLI::App application;
    Action chosen;
    addBadPixels(application, chosen);
    application.parse("bad-pixels " + arguments);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ExitCode code = ExitCode::internalFault;
    std::string message;
    try {
      code = chosen();
    } catch (const Failure& failure) {
      code = failure.code;
      message = failure.what();
    }
    testing::internal::GetCapturedStderr();
    return {code, testing::internal::GetCapturedStdout() + message};
  }

  /// An even scene of a 16-bit sensor with defects of known values, as 16-bit PNG.
  void writeScene(const std::string& name, const std::vector<std::pair<cv::Point, int>>& defects) const {
    cv::Mat_<unsigned short> image(48, 64);
    cv::RNG random(9);
    for (unsigned short& v : image) v = static_cast<unsigned short>(40000 + random.uniform(0, 60));
    for (const auto& [pixel, value] : defects) image(pixel) = static_cast<unsigned short>(value);
    ASSERT_TRUE(cv::imwrite(at(name), image));
  }
};

std::set<std::pair<int, int>> positions(const List& list) {
  std::set<std::pair<int, int>> all;
  for (int row = 0; row < list.rows; ++row) all.emplace(list(row, 0), list(row, 1));
  return all;
}

TEST_F(ToolBadPixels, AListSurvivesItsFile) {
  List list(50, 10);
  cv::RNG random(1);
  random.fill(list, cv::RNG::UNIFORM, 0, 480);
  writeAll(at("list.csv"), badPixelsAsCsv(list, {640, 480}));
  const BadPixelFile read = readBadPixels(at("list.csv"));
  EXPECT_EQ(read.frameSize, cv::Size(640, 480));
  ASSERT_EQ(read.list.size(), list.size());
  EXPECT_EQ(cv::countNonZero(read.list != list), 0);

  writeAll(at("empty.csv"), badPixelsAsCsv(List(0, 10), {640, 480}));
  EXPECT_EQ(readBadPixels(at("empty.csv")).list.rows, 0);
  writeAll(at("spreadsheet.csv"), "\xEF\xBB\xBFx, y\r\n3,4 \r\n\r\n 65535,0");
  const BadPixelFile short1 = readBadPixels(at("spreadsheet.csv"));
  EXPECT_EQ(positions(short1.list), (std::set<std::pair<int, int>>{{3, 4}, {65535, 0}}));
  EXPECT_TRUE(short1.frameSize.empty());
}

TEST_F(ToolBadPixels, AFileThatIsNoListIsRefusedByLine) {
  const std::string row = "1,2,0,2,2,2,1,1,1,3,";
  const std::pair<std::string, std::string> cases[] = {
      {"", "no bad-pixel list"},
      {"1,2\n", "line 1: is no bad-pixel list"},
      {"x;y\n1;2\n", "line 1"},
      {"x,y\n1,2\n\n3\n", "line 4: has 1 fields instead of 2"},
      {"x,y\n1,-2\n", "line 2: \"-2\" is not"},
      {"x,y\n1,2.5\n", "\"2.5\""},
      {"x,y\n1,65536\n", "\"65536\""},
      {header + row + "64,48\n" + row + "64,32\n", "line 3: is for frames of 64x32"},
      {header + row + "64,2\n", "line 2: the pixel lies outside"},
  };
  for (const auto& [bytes, message] : cases) {
    writeAll(at("list.csv"), bytes);
    const std::string failure = failureOf([&] { readBadPixels(at("list.csv")); });
    EXPECT_NE(failure.find(message), std::string::npos) << failure;
    EXPECT_NE(failure.find("list.csv"), std::string::npos) << failure;
  }
  for (const std::string& file : {at("missing.csv"), folder.string()})
    EXPECT_THROW(readBadPixels(file), Failure) << file;
}

TEST_F(ToolBadPixels, MarkedPixelsHoldTheInvalidFlagAndListsOfOtherSensorsAreRefused) {
  const auto frameOf = [](int width, int height) {
    return Frame{cv::Mat_<float>(height, width, 20.F), "frame.tiff"};
  };
  List list(2, 10, static_cast<unsigned short>(0));
  list(1, 0) = 5;
  list(1, 1) = 3;
  Frame frame = frameOf(6, 4);
  markBadPixels({list, {6, 4}, "list.csv"}, frame);
  EXPECT_EQ(cv::countNonZero(frame.pixels != 20.F), 2);
  for (const cv::Point pixel : {cv::Point(0, 0), cv::Point(5, 3)})
    EXPECT_TRUE(movra::test::sameBits({frame.pixels(pixel)}, {movra::test::asFloat(132)}));
  const auto refusal = [&](cv::Size listSize, int width, int height) {
    return failureOf([&] {
      Frame other = frameOf(width, height);
      markBadPixels({list, listSize, "list.csv"}, other);
    });
  };
  EXPECT_EQ(refusal({6, 4}, 7, 4),
            "list.csv: is for frames of 6x4, but frame.tiff is 7x4; use the list of this camera");
  EXPECT_EQ(refusal({}, 5, 4),
            "list.csv: has a pixel at x 5, y 3, outside frame.tiff of 5x4; use the list of this camera");
}

TEST_F(ToolBadPixels, PlantedDefectsAreFoundListedAndDrawn) {
  writeScene("a.png", {{{10, 20}, 0}, {{11, 20}, 65535}, {{63, 47}, 39000}});
  writeScene("b.png", {{{10, 20}, 0}, {{30, 5}, 41000}});
  const auto [code, out] =
      run(at("a.png") + " " + at("b.png") + " -o " + at("list.csv") + " --picture " + at("p.png"));
  EXPECT_EQ(code, ExitCode::done) << out;
  EXPECT_NE(out.find("bad pixels: 4 in 2 frames of 64x48"), std::string::npos) << out;
  const BadPixelFile file = readBadPixels(at("list.csv"));
  EXPECT_EQ(file.frameSize, cv::Size(64, 48));
  const auto bad = positions(file.list);
  EXPECT_EQ(bad, (std::set<std::pair<int, int>>{{10, 20}, {11, 20}, {63, 47}, {30, 5}}));
  for (int row = 0; row < file.list.rows; ++row) {
    for (int k = 2; k < 10; k += 2) {
      const cv::Point replacement(file.list(row, k), file.list(row, k + 1));
      EXPECT_TRUE(replacement.inside({0, 0, 64, 48})) << replacement;
      EXPECT_EQ(bad.count({replacement.x, replacement.y}), 0U) << replacement;
    }
  }
  EXPECT_EQ(cv::imread(at("p.png")).size(), cv::Size(64, 48));
  const auto [again, csv] = run(at("a.png") + " --low 39000");
  EXPECT_EQ(csv.rfind(std::string(header) + "10,20,", 0), 0U) << csv;
}

TEST_F(ToolBadPixels, WhatCannotBeSearchedLeavesNoList) {
  writeScene("a.png", {});
  ASSERT_TRUE(cv::imwrite(at("half.tiff"), cv::Mat(48, 64, CV_32F, cv::Scalar(20.5))));
  ASSERT_TRUE(cv::imwrite(at("small.png"), cv::Mat(40, 64, CV_16U, cv::Scalar(40000))));
  const std::tuple<std::string, ExitCode, std::string> cases[] = {
      {at("a.png") + " --high 40030", ExitCode::degraded, "too many for defects"},
      {at("half.tiff"), ExitCode::badInput, "not whole numbers"},
      {at("a.png") + " " + at("small.png"), ExitCode::badInput, "small.png: is 64x40"},
      {at("a.png") + " --low 5 --high 5", ExitCode::usage, "--low must be smaller"},
      {at("a.png") + " --picture " + at("list.csv"), ExitCode::usage, "two names"},
      {at("a.png") + " --picture " + at("a.png") + " --force", ExitCode::outputNotWritten,
       "one of the inputs"},
  };
  for (const auto& [arguments, code, message] : cases) {
    const auto [result, text] = run(arguments + " -o " + at("list.csv"));
    EXPECT_EQ(result, code) << arguments;
    EXPECT_NE(text.find(message), std::string::npos) << text;
    EXPECT_FALSE(std::filesystem::exists(at("list.csv"))) << arguments;
  }
}

}  // namespace
