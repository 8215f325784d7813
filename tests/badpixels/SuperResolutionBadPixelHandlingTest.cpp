#include "vision/superresolution/SuperResolutionBadPixelHandling.h"

#include "tests/support/Test.h"
#include "vision/superresolution/detail/badpixels/ValueKey.h"

using namespace movra::test;
using namespace movra::vision;
using detail::bitsOf;

namespace {

using Shifts = std::vector<cv::Point_<float>>;

/// From 20 in the first corner to 76 in the last.
cv::Mat_<float> goodFrame() {
  cv::Mat_<float> frame(6, 7);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 7; ++x) {
      frame(y, x) = static_cast<float>(20 + 10 * y + x);
    }
  return frame;
}

cv::Mat_<float> frameWith(float value, int row, int column) {
  cv::Mat_<float> frame = goodFrame();
  frame(row, column) = value;
  return frame;
}

cv::Mat_<float> highResolutionImage() {
  return cv::Mat_<float>(12, 14, 1.0f);
}

bool sameBits(const cv::Mat_<float>& a, const cv::Mat_<float>& b) {
  return movra::test::sameBits({a.begin(), a.end()}, {b.begin(), b.end()});
}

/// The defect maps held, seen through the flag at a pixel's place in an image masked with them.
std::uint32_t flagAfterMasking(SuperResolutionBadPixelHandling& handling, int row, int column) {
  cv::Mat_<float> hr = highResolutionImage();
  handling.maskBadPixel(hr, Shifts(1));
  return bitsOf(hr(2 * row, 2 * column));
}

/// Minimum and maximum as a plain scan finds them.
struct Extremes {
  float minimum, maximum;
  cv::Point minLoc{-1, -1}, maxLoc{-1, -1};
};
Extremes plainExtremes(const cv::Mat_<float>& img, float lowest, float highest) {
  Extremes e{highest, lowest};
  for (int y = 0; y < img.rows; ++y)
    for (int x = 0; x < img.cols; ++x) {
      const float v = img(y, x);
      const std::uint32_t b = bitsOf(v);
      if (b == 129 || b == 130 || b == 132 || b == 133 || !(v >= lowest && v <= highest)) {
        continue;
      }
      if (v > e.maximum) {
        e.maximum = v, e.maxLoc = {x, y};
      }
      if (v < e.minimum) {
        e.minimum = v, e.minLoc = {x, y};
      }
    }
  return e;
}

}  // namespace

TEST(SuperResolutionBadPixelHandling, MinimumAndMaximumEqualAPlainScanOnEveryInstructionSet) {
  const float palette[] = {notANumber,   -notANumber,  infinity,     -infinity, asFloat(129), asFloat(130),
                           asFloat(131), asFloat(132), asFloat(133), 0.0f,      -0.0f,        5000.0f,
                           5000.01f,     -274.0f,      -274.01f,     3.5f,      -3.5f};
  SuperResolutionBadPixelHandling handling(1);
  cv::RNG random(7);
  movra::test::onEveryInstructionSet([&] {
    for (int width = 1; width <= 40; ++width) {
      // Few different values, so that extremes occur more than once and zeros of both signs are extremes.
      const int first = random.uniform(0, 12);
      cv::Mat_<float> whole(5, width + 3);
      for (float& v : whole) {
        v = palette[random.uniform(first, 17)];
      }
      const cv::Mat_<float> view = whole(cv::Rect(1, 0, width, 5));
      SCOPED_TRACE(width);
      const Extremes expected = plainExtremes(view, -274, 5000);
      Extremes found, unlocated;
      handling.getMinMaxVal(view, found.minimum, found.maximum, &found.minLoc, &found.maxLoc);
      handling.getMinMaxVal(view, unlocated.minimum, unlocated.maximum, nullptr, nullptr);
      EXPECT_TRUE(movra::test::sameBits({found.minimum, found.maximum}, {expected.minimum, expected.maximum}));
      EXPECT_TRUE(movra::test::sameBits({unlocated.minimum, unlocated.maximum}, {expected.minimum, expected.maximum}));
      EXPECT_EQ(found.minLoc, expected.minLoc);
      EXPECT_EQ(found.maxLoc, expected.maxLoc);
    }
  });
}

TEST(SuperResolutionBadPixelHandling, ADefectBecomesTheMeanOfItsNeighboursOrAFallback) {
  // The flag is what maskBadPixel writes.
  for (const auto& [what, isNUC, value, row, column, expected, result, flag] :
       {std::tuple("131 is no flag", false, asFloat(131), 2, 3, asFloat(131), 0, bitsOf(1)),
        {"interior NaN", false, notANumber, 2, 3, 43, 0, 132},
        {"too warm", false, 6000, 2, 3, 43, 0, 132},
        {"6000 counts are good", true, 6000, 2, 3, 6000, 0, bitsOf(1)},
        {"too many counts", true, 40000, 2, 3, 43, 0, 132},
        {"top border: three neighbours suffice", false, notANumber, 0, 3, (22 + 24 + 33) / 3.0f, 0, 132},
        {"over-range in a corner", false, asFloat(129), 0, 6, 76, 0, 129},
        {"under-range in a corner", false, asFloat(130), 5, 0, 20, 0, 130},
        {"too warm in a corner", false, 5000.5f, 0, 6, 76, -2, 132},
        {"minus infinity in a corner", false, -infinity, 5, 0, 20, -2, 132},
        {"invalid flag in a corner", false, asFloat(133), 5, 0, 0, -2, 132}}) {
    SCOPED_TRACE(what);
    SuperResolutionBadPixelHandling handling(1);
    handling.setDataIsNUC(isNUC);
    cv::Mat_<float> frame = frameWith(value, row, column);
    EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), result);
    EXPECT_TRUE(sameBits(frame, frameWith(expected, row, column))) << frame;
    EXPECT_EQ(flagAfterMasking(handling, row, column), flag);
  }
}

TEST(SuperResolutionBadPixelHandling, RepairedPixelsCountForLaterOnesInRasterOrder) {
  SuperResolutionBadPixelHandling handling(1);
  cv::Mat_<float> frame = frameWith(notANumber, 2, 3);
  frame(2, 4) = notANumber;
  // The left one has three valid neighbours and becomes 0; the right one then has four.
  EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2);
  EXPECT_EQ(frame(2, 3), 0.0f);
  EXPECT_EQ(frame(2, 4), (0.0f + 45 + 34 + 54) / 4);
}

TEST(SuperResolutionBadPixelHandling, ElevenUnreplaceablePixelsAreTooManyAndStillLeaveADefectMap) {
  // 6000 keeps every mean from being usable, itself replaced by the maximum.
  const auto checkerboard = [](int defects) {
    cv::Mat_<float> frame(6, 7, 6000.0f);
    for (int i = 0; i < 42; i += 2) {
      frame(i / 7, i % 7) = i < 2 * defects ? notANumber : 20;
    }
    return frame;
  };
  SuperResolutionBadPixelHandling handling(2);
  cv::Mat_<float> frame = checkerboard(10);
  EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2);
  frame = checkerboard(11);
  EXPECT_EQ(textThrownBy([&] { handling.detectAndReplaceBadPixel(frame); }),
            "exception: Too many defect pixels. No processing possible.");
  cv::Mat_<float> hr = highResolutionImage();
  EXPECT_NO_THROW(handling.maskBadPixel(hr, Shifts(2)));
}

TEST(SuperResolutionBadPixelHandling, TheHistoryHoldsTheMapsOfTheLastFrames) {
  SuperResolutionBadPixelHandling handling(3);
  cv::Mat_<float> hr = highResolutionImage();
  const auto replace = [&] { handling.replaceMaskedPixel(hr, {}, {}); };
  EXPECT_EQ(textThrownBy(replace), "exception: bad pixel masks not initalized");
  for (const auto& [flag, row, column] : {std::tuple(129, 0, 0), {130, 2, 3}, {129, 2, 3}, {132, 5, 6}}) {
    cv::Mat_<float> frame = frameWith(asFloat(static_cast<unsigned>(flag)), row, column);
    handling.detectAndReplaceBadPixel(frame);
  }
  handling.maskBadPixel(hr, Shifts(3));
  EXPECT_EQ(hr(0, 0), 1.0f);          // the first map was dropped
  EXPECT_EQ(bitsOf(hr(4, 6)), 129U);  // of the later frame
  EXPECT_EQ(bitsOf(hr(10, 12)), 132U);
  EXPECT_EQ(textThrownBy([&] { handling.maskBadPixel(hr, Shifts(4)); }),
            "exception: maskBadPixel(): number of shifts ist not equal to number of defectMaps");
  handling.clearDefectMaps();
  EXPECT_NO_THROW(handling.maskBadPixel(hr, {}));
  EXPECT_EQ(textThrownBy(replace), "exception: bad pixel masks not initalized");
}

TEST(SuperResolutionBadPixelHandling, ABlockIsFlaggedAroundTheDefect) {
  // The defect is at column 6, row 5.
  for (const auto& [shift, block] :
       {std::pair(cv::Point2f(6, 5), cv::Rect(0, 0, 4, 4)),  // onto (0, 0)
        {{2.8f, 2.3f}, {3, 2, 7, 7}},                        // 6.4 and 5.4: rounded down
        {{-2.49f, 2}, {13, 3, 1, 7}},  // 16.98: beyond the right edge, column 16 is the last that reaches in
        {{2, -1}, {}},                 // below the bottom edge: nothing, though its block reaches in
        {{6.01f, 5}, {}},              // left of the image: nothing
        {{notANumber, notANumber}, {}}}) {
    SuperResolutionBadPixelHandling handling(1);
    cv::Mat_<float> frame = frameWith(asFloat(132), 5, 6);
    handling.detectAndReplaceBadPixel(frame);
    cv::Mat_<float> hr = highResolutionImage(), expected = highResolutionImage();
    expected(block).setTo(asFloat(132));
    handling.maskBadPixel(hr, {shift});
    EXPECT_TRUE(sameBits(hr, expected)) << shift;
  }
}

TEST(SuperResolutionBadPixelHandling, AMaskedPixelBecomesTheMeanOfTheGoodSamplesOnIt) {
  SuperResolutionBadPixelHandling handling(2);
  cv::Mat_<float> first = frameWith(notANumber, 2, 3);
  cv::Mat_<float> second(goodFrame() * 2);
  handling.detectAndReplaceBadPixel(first);
  handling.detectAndReplaceBadPixel(second);
  const Shifts none(2);
  const float mean = 31 * 1.5f;  // of the samples at (1, 1)
  for (const auto& [what, flag, row, column, shifts, mended] :
       {std::tuple("over-range", 129U, 3, 3, none, mean),
        {"invalid", 132, 3, 3, none, mean},
        {"not a mask", 133, 3, 3, none, asFloat(133)},
        {"the first frame is defective there", 129, 5, 7, none, second(2, 3)},
        {"(-1, 0) is index 0", 129, 0, 0, {{-0.9f, -0.9f}, {7, 0}}, first(0, 0)},
        {"no sample: the flag stays", 129, 0, 0, {{-1, 0}, {0, 6}}, asFloat(129)},
        {"one shift", 129, 3, 3, Shifts(1), first(1, 1)},
        {"a shift that is no number", 129, 3, 3, {{notANumber, infinity}, {}}, second(1, 1)}}) {
    cv::Mat_<float> hr = highResolutionImage(), expected = highResolutionImage();
    hr(row, column) = asFloat(flag);
    expected(row, column) = mended;
    handling.replaceMaskedPixel(hr, shifts, {first, second});
    EXPECT_TRUE(sameBits(hr, expected)) << what;
  }
}

TEST(SuperResolutionBadPixelHandling, EmptyFramesAndViewsWork) {
  SuperResolutionBadPixelHandling handling(2);
  cv::Mat_<float> empty, hr = highResolutionImage(), whole(10, 11, 7.0f);
  EXPECT_EQ(handling.detectAndReplaceBadPixel(empty), 0);
  cv::Mat_<float> view = whole(cv::Rect(2, 1, 7, 6));
  frameWith(notANumber, 2, 3).copyTo(view);
  EXPECT_EQ(handling.detectAndReplaceBadPixel(view), 0);
  EXPECT_EQ(whole(3, 5), 43.0f);
  handling.maskBadPixel(hr, Shifts(2));
  handling.replaceMaskedPixel(hr, Shifts(2), {empty, view});
  EXPECT_EQ(bitsOf(hr(4, 6)), 132U) << "the first map gives the bounds, and it is empty";
}

TEST(SuperResolutionBadPixelHandling, CameraFlagsAreColoured) {
  const cv::Mat_<float> img = (cv::Mat_<float>(1, 4) << asFloat(129), asFloat(130), asFloat(132), 20.0f);
  cv::Mat_<cv::Vec3b> colour(1, 4, cv::Vec3b(1, 2, 3));
  SuperResolutionBadPixelHandling(1).colorBadPixel(img, colour);
  const cv::Vec3b expected[] = {{0, 0, 255}, {255, 0, 0}, {1, 2, 3}, {1, 2, 3}};
  EXPECT_TRUE(std::equal(colour.begin(), colour.end(), expected)) << colour;
}
