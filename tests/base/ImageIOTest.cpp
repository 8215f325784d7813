#include "movra/exp/ImageIO.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/Checks.h"
#include "tests/support/TestFolder.h"

namespace {

using movra::exp::ImageIO;

class ImageIOTest : public TestFolder {};

TEST_F(ImageIOTest, ClosedUntilOpenedAndOnlyInWriteMode) {
  ImageIO log(2);
  EXPECT_THROW(log.write(cv::Mat_<float>(2, 2, 1.f), ""), movra::Exception);
  EXPECT_FALSE(ImageIO(1).open(folder.string()));
  EXPECT_FALSE(log.open("/dev/null/folder"));
}

TEST_F(ImageIOTest, WritesEveryBitBottomRowFirst) {
  const std::vector<std::uint32_t> bits = {0x3f800000, 129, 130, 132, 0x7fc12345, 0xff800000};
  cv::Mat_<float> wide(2, 5, 0.f);
  cv::Mat_<float> image = wide.colRange(1, 4);  // rows with gaps between them
  for (int y = 0; y < 2; ++y) {
    std::memcpy(image[y], &bits[static_cast<std::size_t>(3 * y)], 3 * sizeof(float));
  }

  ImageIO log(2);
  ASSERT_TRUE(log.open(at("made/here")));
  log.write(image, "");
  ImageIO copy = log;  // as when a vector grows
  copy.write(cv::Mat_<std::uint8_t>(1, 1, std::uint8_t{7}), "a/b");

  std::string expected = "Pf\n3 2\n-1.0\n";
  expected.append(reinterpret_cast<const char*>(&bits[3]), 12);
  expected.append(reinterpret_cast<const char*>(&bits[0]), 12);
  EXPECT_EQ(readAll(at("made/here/0000.pfm")), expected);
  const float seven = 7.f;
  EXPECT_EQ(readAll(at("made/here/0001_a_b.pfm")),
            "Pf\n1 1\n-1.0\n" + std::string(reinterpret_cast<const char*>(&seven), sizeof seven));
}

TEST_F(ImageIOTest, AFailedWriteNamesTheFileAndLeavesNothing) {
  ImageIO log(2);
  ASSERT_TRUE(log.open(folder.string()));
  EXPECT_THROW(log.write(cv::Mat_<cv::Vec3f>(2, 2), "colour"), movra::Exception);
  EXPECT_THROW(log.write(cv::Mat(), "empty"), movra::Exception);
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  std::filesystem::remove_all(folder);
  const std::string text = movra::test::textThrownBy([&] { log.write(cv::Mat_<float>(2, 2, 1.f), "lost"); });
  EXPECT_NE(text.find("0000_lost.pfm"), std::string::npos) << text;
}

}  // namespace
