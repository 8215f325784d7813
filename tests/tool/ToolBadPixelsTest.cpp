// Bad-pixel lists of the command-line tool: the file and the marking of frames.

#include "tests/support/Checks.h"
#include "tests/support/TestFolder.h"
#include "tests/tool/ToolFailure.h"
#include "tools/movra-sr/io/BadPixelFile.h"

using namespace movra::tool;

namespace {

using List = cv::Mat_<unsigned short>;

constexpr const char* header = "x,y,x1,y1,x2,y2,x3,y3,x4,y4,width,height\n";

class ToolBadPixels : public TestFolder {};

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
  EXPECT_EQ(cv::countNonZero(short1.list.colRange(0, 2) != (List(2, 2) << 3, 4, 65535, 0)), 0) << short1.list;
  EXPECT_TRUE(short1.frameSize.empty());
}

TEST_F(ToolBadPixels, AFileThatIsNoListIsRefusedByLine) {
  const std::string row = "1,2,0,2,2,2,1,1,1,3,";
  std::string endless;
  for (int i = 0; i <= 1 << 20; ++i) {
    endless += "1,2\n";
  }
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
      {"x,y\n" + std::string(3 << 20, '1'), "line 2: is longer than a mebibyte"},
      {"x,y\n" + endless, "more than 1048576 pixels"},
  };
  for (const auto& [bytes, message] : cases) {
    writeAll(at("list.csv"), bytes);
    const std::string failure = failureOf([&] { readBadPixels(at("list.csv")); });
    EXPECT_NE(failure.find(message), std::string::npos) << failure;
    EXPECT_NE(failure.find("list.csv"), std::string::npos) << failure;
  }
  for (const std::string& file : {at("missing.csv"), folder.string()}) {
    EXPECT_THROW(readBadPixels(file), Failure) << file;
  }
}

TEST_F(ToolBadPixels, MarkedPixelsHoldTheInvalidFlagAndListsOfOtherSensorsAreRefused) {
  const auto frameOf = [](int width, int height) { return Frame{cv::Mat_<float>(height, width, 20.f), "frame.tiff"}; };
  List list(2, 10, static_cast<unsigned short>(0));
  list(1, 0) = 5;
  list(1, 1) = 3;
  Frame frame = frameOf(6, 4);
  markBadPixels({list, {6, 4}, "list.csv"}, frame);
  EXPECT_EQ(cv::countNonZero(frame.pixels != 20.f), 2);
  for (const cv::Point pixel : {cv::Point(0, 0), cv::Point(5, 3)}) {
    EXPECT_TRUE(movra::test::sameBits({frame.pixels(pixel)}, {movra::test::asFloat(132)}));
  }
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

}  // namespace
