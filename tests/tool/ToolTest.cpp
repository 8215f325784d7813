// The parts of the command-line tool that need no process of their own.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "tests/support/TestFolder.h"
#include "tests/tool/TestImages.h"
#include "tests/tool/ToolFailure.h"
#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/io/NaturalOrder.h"
#include "tools/movra-sr/io/OutputFile.h"
#include "tools/movra-sr/report/Quality.h"

using namespace movra::tool;

namespace {

std::vector<Frame> framesOf(const std::string& file, const Scale& scale = {}) {
  std::vector<Frame> frames;
  readFrames(file, scale, [&](Frame&& frame) { frames.push_back(std::move(frame)); });
  return frames;
}

TEST(ToolNaturalOrder, NumbersCompareByValue) {
  const std::vector<std::string> expected = {"f", "f1x3", "f1x20", "f02", "f2", "f9b", "f10", "f99999999999999999999"};
  std::vector<std::string> names(expected.rbegin(), expected.rend());
  std::sort(names.begin(), names.end(), naturalLess);
  EXPECT_EQ(names, expected);
  EXPECT_FALSE(naturalLess("f2", "f2"));
}

class ToolIo : public TestFolder {};

TEST_F(ToolIo, FloatsKeepTheirBitsAndFlagsSurviveScaling) {
  const std::vector<std::uint32_t> bits = {129, 130, 132, 133, 0x7fc12345, 0x7f800000, 0xff800000, 0x3f800000};
  cv::Mat_<float> image(2, 4);
  std::memcpy(image.data, bits.data(), bits.size() * sizeof(float));
  OutputFile file(at("floats.tiff"), false);
  writeImage(file, image, {"bits"});
  file.commit();
  const cv::Mat_<float> read = readImage(at("floats.tiff")).pixels;
  ASSERT_EQ(read.size(), image.size());
  EXPECT_EQ(std::memcmp(read.data, image.data, bits.size() * sizeof(float)), 0);
  const cv::Mat_<float> scaled = framesOf(at("floats.tiff"), {2, 5})[0].pixels;
  EXPECT_EQ(std::memcmp(scaled.data, image.data, 4 * sizeof(float)), 0);
  EXPECT_EQ(scaled(1, 3), 7.f);
}

TEST_F(ToolIo, PagesComeOneByOneAndATruncatedFileIsNoSuccess) {
  std::vector<cv::Mat> pages;
  for (int i = 0; i < 5; ++i) {
    pages.emplace_back(20, 30, CV_16UC1, cv::Scalar(100 * i + 1));
  }
  movra::test::writeTiff(at("burst.tiff"), pages);
  const auto frames = framesOf(at("burst.tiff"));
  ASSERT_EQ(frames.size(), 5U);
  EXPECT_EQ(frames[0].name, at("burst.tiff") + ", page 1");
  EXPECT_EQ(frames[4].pixels(3, 3), 401.f);
  EXPECT_NE(failureOf([&] { readImage(at("burst.tiff")); }).find("more than one page"), std::string::npos);

  const std::string whole = readAll(at("burst.tiff"));
  for (std::size_t length = 0; length + 1 < whole.size(); length += 97) {
    writeAll(at("cut.tiff"), whole.substr(0, length));
    EXPECT_NE(failureOf([&] { framesOf(at("cut.tiff")); }).find("cut.tiff"), std::string::npos) << length;
  }
}

TEST_F(ToolIo, AFolderGivesItsNumberedPicturesInNaturalOrder) {
  for (const std::string name : {"f10.png", "f9.TIFF", "truth.tiff", "shifts1.csv", ".f1.png", "f11.tif"}) {
    writeAll(at(name), "x");
  }
  const std::vector<std::string> expected = {at("f9.TIFF"), at("f10.png"), at("f11.tif"), "z.png"};
  EXPECT_EQ(expandFolders({folder.string(), "z.png"}), expected);
  std::filesystem::create_directory(at("none"));
  EXPECT_NE(failureOf([&] { expandFolders({at("none")}); }), "");
}

TEST(ToolQuality, KnownValues) {
  cv::Mat_<float> truth(32, 32);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) {
      truth(y, x) = static_cast<float>(20 + 10 * ((x / 4 + y / 4) % 2));
    }
  EXPECT_TRUE(std::isinf(peakSignalToNoise(truth, truth)));
  EXPECT_NEAR(structuralSimilarity(truth, truth), 1, 1e-12);
  const cv::Mat_<float> lifted(truth + 1);
  EXPECT_NEAR(peakSignalToNoise(lifted, truth), 20, 1e-4);  // peak 10, error 1
  EXPECT_GT(structuralSimilarity(lifted, truth), 0.99);     // only the level differs
  const cv::Mat_<float> inverted(50 - truth);
  EXPECT_LT(structuralSimilarity(inverted, truth), -0.5);
}

}  // namespace
