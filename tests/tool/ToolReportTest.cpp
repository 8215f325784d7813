// The report page, in a browser.

#include <png.h>

#include "tests/tool/ToolRun.h"

using namespace movra::tool;

namespace {

/// A picture in colours, as blue, green, red.
cv::Mat_<cv::Vec3b> readPicture(const std::string& path) {
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&png, path.c_str()) == 0) {
    return {};
  }
  png.format = PNG_FORMAT_BGR;
  cv::Mat_<cv::Vec3b> picture(static_cast<int>(png.height), static_cast<int>(png.width));
  png_image_finish_read(&png, nullptr, picture.data, 0, nullptr);
  return picture;
}

std::string browser() {
  for (const char* const name : {"chromium", "chromium-browser", "google-chrome"}) {
    if (std::system((std::string("command -v ") + name + " >/dev/null").c_str()) == 0) {
      return name;
    }
  }
  return {};
}

class ToolReport : public ToolCommand {
 protected:
  /// The page in a window of the width, its slider put to the share by its address.
  cv::Mat_<cv::Vec3b> screen(int slider, int width) const {
    const std::string command = "cd '" + folder.string() + "' && timeout 60 " + browser() +
                                " --headless --no-sandbox --disable-gpu --hide-scrollbars --user-data-dir=profile" +
                                " --screenshot=screen.png --window-size=" + std::to_string(width) + ",1200 'file://" +
                                at("sr.html") + "#" + std::to_string(slider) + "' >browser.log 2>&1";
    std::filesystem::remove(at("screen.png"));
    if (std::system(command.c_str()) != 0) {
      return {};
    }
    return readPicture(at("screen.png"));
  }
};

TEST_F(ToolReport, NeedsNoOtherFileAndTellsTheFigures) {
  simulate();
  const Outcome made = run("reconstruct burst -o sr.tiff --report sr.html --unit '<K>'");
  ASSERT_EQ(made.code, 0) << made.err;
  const std::string page = readAll(at("sr.html"));
  EXPECT_EQ(page.find("http"), std::string::npos) << "the page needs no network";
  EXPECT_EQ(page.find("<K>"), std::string::npos) << "text is escaped";
  EXPECT_NE(page.find("all frames could be aligned"), std::string::npos);
  EXPECT_NE(page.find("frame_03.tiff"), std::string::npos);
  EXPECT_EQ(page.substr(page.size() - 8), "</html>\n");
}

TEST_F(ToolReport, TheSliderShowsTheFrameToItsLeftAndTheResultToItsRight) {
  if (browser().empty()) {
    GTEST_SKIP() << "no browser (package chromium)";
  }
  simulate();
  ASSERT_EQ(run("reconstruct burst -o sr.tiff --report sr.html").code, 0);
  for (const int width : {900, 400}) {
    const cv::Mat_<cv::Vec3b> result = screen(0, width);
    const cv::Mat_<cv::Vec3b> frame = screen(100, width);
    const cv::Mat_<cv::Vec3b> both = screen(50, width);
    ASSERT_FALSE(result.empty() || frame.empty() || both.empty()) << readAll(at("browser.log"));
    ASSERT_EQ(result.size(), frame.size());
    // The pictures begin below the status; the line in the middle differs from both.
    const cv::Rect pictures(20, 0, result.cols - 40, result.rows);
    const int quarter = pictures.width / 2 - 4;
    const auto differing = [&](const cv::Mat& a, const cv::Mat& b, int x) {
      cv::Mat difference;
      cv::absdiff(a(cv::Rect(x, 0, quarter, a.rows)), b(cv::Rect(x, 0, quarter, b.rows)), difference);
      return cv::countNonZero(difference.reshape(1) > 24);
    };
    const int right = result.cols / 2 + 4;
    EXPECT_GT(differing(result, frame, 20), 500) << width;
    EXPECT_GT(differing(result, frame, right), 500) << width;
    // The slider itself moves, and takes some pixels.
    EXPECT_LT(differing(both, frame, 20), 0.25 * differing(both, result, 20)) << width;
    EXPECT_LT(differing(both, result, right), 0.25 * differing(both, frame, right)) << width;
  }
}

}  // namespace
