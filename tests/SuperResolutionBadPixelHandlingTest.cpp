#include "vision/superresolution/SuperResolutionBadPixelHandling.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

#include "movra/Exception.h"
#include "vision/superresolution/SuperResolutionTypes.h"
#include "vision/superresolution/detail/InstructionSet.h"
#include "vision/superresolution/detail/ValueKey.h"

using namespace movra::vision;
using detail::bitsOf;

namespace {

constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();
using Shifts = std::vector<cv::Point_<float>>;
using Frames = std::vector<cv::Mat_<float>>;

float flagged(std::uint32_t bits) {
  float value;
  detail::setBits(value, bits);
  return value;
}

cv::Mat_<float> goodFrame(int rows = 6, int columns = 7) {
  cv::Mat_<float> frame(rows, columns);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < columns; ++x) frame(y, x) = static_cast<float>(20 + 10 * y + x);
  }
  return frame;
}

cv::Mat_<float> frameWith(float value, int row, int column) {
  cv::Mat_<float> frame = goodFrame();
  frame(row, column) = value;
  return frame;
}

bool sameBits(const cv::Mat_<float>& a, const cv::Mat_<float>& b) {
  if (a.size() != b.size()) return false;
  for (int y = 0; y < a.rows; ++y) {
    if (std::memcmp(a[y], b[y], sizeof(float) * static_cast<std::size_t>(a.cols)) != 0) return false;
  }
  return true;
}

// The defect map last stored, seen through the flags that maskBadPixel writes: one pixel every eight is the
// centre of a block that no other touches.
std::uint32_t flagAfterMasking(SuperResolutionBadPixelHandling& handling, int row, int column) {
  cv::Mat_<float> hr(12, 14, 1.0F);
  handling.maskBadPixel(hr, Shifts(1));
  return bitsOf(hr(2 * row, 2 * column));
}

// Minimum and maximum as a plain scan finds them.
struct Extremes {
  float minimum, maximum;
  cv::Point minLoc{-1, -1}, maxLoc{-1, -1};
};
Extremes plainExtremes(const cv::Mat_<float>& img, float lowest, float highest) {
  Extremes e{highest, lowest};
  for (int y = 0; y < img.rows; ++y) {
    for (int x = 0; x < img.cols; ++x) {
      const float v = img(y, x);
      const std::uint32_t b = bitsOf(v);
      if (b == 129 || b == 130 || b == 132 || b == 133 || !(v >= lowest && v <= highest)) continue;
      if (v > e.maximum) e.maximum = v, e.maxLoc = {x, y};
      if (v < e.minimum) e.minimum = v, e.minLoc = {x, y};
    }
  }
  return e;
}

class FlushSubnormals {
 public:
#if defined(__SSE2__)
  FlushSubnormals() : saved(_mm_getcsr()) {
    _mm_setcsr(saved | 0x8040U);
  }
  ~FlushSubnormals() {
    _mm_setcsr(saved);
  }

 private:
  unsigned int saved;
#endif
};

}  // namespace

TEST(SuperResolutionBadPixelHandling, MinimumAndMaximumEqualAPlainScanOnEveryInstructionSet) {
  const float palette[] = {notANumber,   -notANumber,  infinity,     -infinity, flagged(129), flagged(130),
                           flagged(131), flagged(132), flagged(133), 0.0F,      -0.0F,        5000.0F,
                           5000.01F,     -274.0F,      -274.01F,     3.5F,      -3.5F};
  SuperResolutionBadPixelHandling handling(1);
  cv::RNG random(7);
  for (const auto set : detail::availableInstructionSets()) {
    detail::selectInstructionSet(set);
    for (int width = 1; width <= 40; ++width) {
      // Few different values, so that extremes occur more than once and zeros of both signs are extremes.
      const int first = random.uniform(0, 12);
      cv::Mat_<float> whole(5, width + 3);
      for (float& v : whole) v = palette[random.uniform(first, 17)];
      const cv::Mat_<float> view = whole(cv::Rect(1, 0, width, 5));
      const Extremes expected = plainExtremes(view, -274, 5000);
      float minimum, maximum;
      cv::Point minLoc{-1, -1}, maxLoc{-1, -1};
      handling.getMinMaxVal(view, minimum, maximum, nullptr, nullptr);
      EXPECT_EQ(bitsOf(minimum), bitsOf(expected.minimum)) << name(set) << " width " << width;
      EXPECT_EQ(bitsOf(maximum), bitsOf(expected.maximum)) << name(set) << " width " << width;
      handling.getMinMaxVal(view, minimum, maximum, &minLoc, &maxLoc);
      EXPECT_EQ(bitsOf(minimum), bitsOf(expected.minimum)) << name(set) << " width " << width;
      EXPECT_EQ(minLoc, expected.minLoc) << name(set) << " width " << width;
      EXPECT_EQ(maxLoc, expected.maxLoc) << name(set) << " width " << width;
    }
  }
}

TEST(SuperResolutionBadPixelHandling, AGoodFrameIsLeftAlone) {
  SuperResolutionBadPixelHandling handling(1);
  cv::Mat_<float> frame = frameWith(flagged(131), 2, 3);  // 131 is no flag
  const cv::Mat_<float> before = frame.clone();
  EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), 0);
  EXPECT_TRUE(sameBits(frame, before));
  cv::Mat_<float> hr(12, 14, 1.0F);
  handling.maskBadPixel(hr, Shifts(1));
  EXPECT_EQ(cv::countNonZero(hr != 1.0F), 0);
}

TEST(SuperResolutionBadPixelHandling, ADefectBecomesTheMeanOfItsNeighboursOrAFallback) {
  struct Case {
    const char* what;
    bool nuc;
    float value;
    int row, column;
    float expected;
    int result;
    std::uint32_t flag;  // what maskBadPixel writes; 0: the pixel is good
  };
  const float largest = 76, smallest = 20;  // of the frame, at its last and its first corner
  const Case cases[] = {
      {"interior NaN", false, notANumber, 2, 3, 43, 0, 132},
      {"interior infinity", false, -infinity, 2, 3, 43, 0, 132},
      {"invalid flag", false, flagged(132), 2, 3, 43, 0, 132},
      {"other invalid flag", false, flagged(133), 2, 3, 43, 0, 132},
      {"too warm", false, 6000, 2, 3, 43, 0, 132},
      {"6000 counts are good", true, 6000, 2, 3, 6000, 0, 0},
      {"too many counts", true, 40000, 2, 3, 43, 0, 132},
      {"top border: three neighbours suffice", false, notANumber, 0, 3, (22 + 24 + 33) / 3.0F, 0, 132},
      {"over-range in a corner", false, flagged(129), 0, 6, largest, 0, 129},
      {"under-range in a corner", false, flagged(130), 5, 0, smallest, 0, 130},
      {"too warm in a corner", false, 5000.5F, 0, 6, largest, -2, 132},
      {"minus infinity in a corner", false, -infinity, 5, 0, smallest, -2, 132},
      {"NaN in a corner", false, notANumber, 5, 0, 0, -2, 132},
      {"invalid flag in a corner", false, flagged(133), 5, 0, 0, -2, 132},
  };
  for (const Case& c : cases) {
    SuperResolutionBadPixelHandling handling(1);
    handling.setDataIsNUC(c.nuc);
    cv::Mat_<float> frame = frameWith(c.value, c.row, c.column);
    EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), c.result) << c.what;
    EXPECT_EQ(frame(c.row, c.column), c.expected) << c.what;
    cv::Mat_<float> rest = frame.clone();
    rest(c.row, c.column) = goodFrame()(c.row, c.column);
    EXPECT_TRUE(sameBits(rest, goodFrame())) << c.what;
    EXPECT_EQ(flagAfterMasking(handling, c.row, c.column), c.flag ? c.flag : bitsOf(1.0F)) << c.what;
  }
}

TEST(SuperResolutionBadPixelHandling, RepairedPixelsCountForLaterOnesInRasterOrder) {
  SuperResolutionBadPixelHandling handling(1);
  cv::Mat_<float> frame = goodFrame();
  frame(2, 3) = frame(2, 4) = notANumber;
  // The left one has three valid neighbours and becomes 0; the right one then has four.
  EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2);
  EXPECT_EQ(frame(2, 3), 0.0F);
  EXPECT_EQ(frame(2, 4), (0.0F + 45 + 34 + 54) / 4);
}

TEST(SuperResolutionBadPixelHandling, AHostThatFlushesSubnormalsLosesNoFlag) {
  const FlushSubnormals mode;
  SuperResolutionBadPixelHandling handling(1);
  cv::Mat_<float> frame = frameWith(flagged(129), 2, 3);
  frame(5, 0) = flagged(130);
  EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), 0);
  EXPECT_EQ(frame(2, 3), 43.0F);
  EXPECT_EQ(frame(5, 0), 20.0F);
  EXPECT_EQ(flagAfterMasking(handling, 5, 0), 130U);
  float minimum, maximum;
  handling.getMinMaxVal((cv::Mat_<float>(1, 3) << flagged(200), flagged(129), flagged(100)), minimum, maximum,
                        nullptr, nullptr);
  EXPECT_EQ(bitsOf(minimum), 100U);
  EXPECT_EQ(bitsOf(maximum), 200U);
}

TEST(SuperResolutionBadPixelHandling, ElevenUnreplaceablePixelsAreTooManyAndStillLeaveADefectMap) {
  const auto checkerboard = [](int defects) {
    cv::Mat_<float> frame = goodFrame();
    for (int y = 0; y < frame.rows; ++y) {
      for (int x = 0; x < frame.cols; ++x) {
        if ((x + y) % 2 == 0) {
          frame(y, x) = defects-- > 0 ? notANumber : frame(y, x);
        } else {
          frame(y, x) = 6000;  // keeps every mean from being usable, itself replaced by the maximum
        }
      }
    }
    return frame;
  };
  SuperResolutionBadPixelHandling handling(2);
  cv::Mat_<float> frame = checkerboard(10);
  EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2);
  frame = checkerboard(11);
  try {
    handling.detectAndReplaceBadPixel(frame);
    FAIL() << "eleven are accepted";
  } catch (const movra::Exception& e) {
    EXPECT_STREQ(e.what(), "Too many defect pixels. No processing possible.");
    const std::string& place = e.location();
    const std::string function = ": detectAndReplaceBadPixel(..)\n";
    EXPECT_NE(place.find("vision/superresolution/SuperResolutionBadPixelHandling.cpp: "), std::string::npos)
        << place;
    EXPECT_EQ(place.find(function), place.size() - function.size()) << place;
  }
  EXPECT_EQ(cv::countNonZero(frame != frame), 0);
  cv::Mat_<float> hr(12, 14, 1.0F);
  EXPECT_NO_THROW(handling.maskBadPixel(hr, Shifts(2)));
}

TEST(SuperResolutionBadPixelHandling, TheHistoryHoldsTheMapsOfTheLastFrames) {
  SuperResolutionBadPixelHandling handling(3);
  cv::Mat_<float> hr(12, 14, 1.0F);
  try {
    handling.replaceMaskedPixel(hr, {}, {});
    FAIL() << "no map is held";
  } catch (const movra::Exception& e) {
    EXPECT_STREQ(e.what(), "bad pixel masks not initalized");
  }
  const auto load = [&](float value, int row, int column) {
    cv::Mat_<float> frame = frameWith(value, row, column);
    handling.detectAndReplaceBadPixel(frame);
  };
  load(flagged(129), 0, 0);
  load(flagged(130), 2, 3);
  load(flagged(129), 2, 3);
  load(flagged(132), 5, 6);  // drops the first
  handling.maskBadPixel(hr, Shifts(3));
  EXPECT_EQ(hr(0, 0), 1.0F);
  EXPECT_EQ(bitsOf(hr(4, 6)), 129U);  // of the later frame
  EXPECT_EQ(bitsOf(hr(10, 12)), 132U);

  try {
    handling.maskBadPixel(hr, Shifts(4));
    FAIL() << "one shift too many";
  } catch (const movra::Exception& e) {
    EXPECT_STREQ(e.what(), "maskBadPixel(): number of shifts ist not equal to number of defectMaps");
  }
  handling.clearDefectMaps();
  EXPECT_NO_THROW(handling.maskBadPixel(hr, {}));
  EXPECT_THROW(handling.replaceMaskedPixel(hr, {}, {}), movra::Exception);
}

TEST(SuperResolutionBadPixelHandling, ABlockIsFlaggedAroundTheDefect) {
  struct Case {
    cv::Point2f shift;
    cv::Rect block;  // what is flagged in a 14 x 12 image; the defect is at column 6, row 5
  };
  const float huge = std::numeric_limits<float>::max();
  const Case cases[] = {
      {{6, 5}, {0, 0, 4, 4}},        // onto (0, 0)
      {{2.8F, 2.3F}, {3, 2, 7, 7}},  // 6.4 and 5.4: rounded down
      {{-2, 2}, {13, 3, 1, 7}},      // two columns beyond the right edge
      {{-2.49F, 2}, {13, 3, 1, 7}},  // 16.98: column 16 is the last that reaches in
      {{-2.5F, 2}, {}},              // three beyond the last that does
      {{2, -1}, {}},                 // below the bottom edge: nothing, though its block reaches in
      {{6.01F, 5}, {}},              // left of the image: nothing
      {{huge, 0}, {}},
      {{-huge, 0}, {}},
      {{notANumber, 0}, {}},
      {{0, notANumber}, {}},
      {{-infinity, -infinity}, {}},
  };
  for (const Case& c : cases) {
    SuperResolutionBadPixelHandling handling(1);
    cv::Mat_<float> frame = frameWith(flagged(132), 5, 6);
    handling.detectAndReplaceBadPixel(frame);
    cv::Mat_<float> hr(12, 14, 1.0F);
    cv::Mat_<float> expected = hr.clone();
    expected(c.block).setTo(flagged(132));
    handling.maskBadPixel(hr, {c.shift});
    EXPECT_TRUE(sameBits(hr, expected)) << c.shift;
  }
}

TEST(SuperResolutionBadPixelHandling, AMaskedPixelBecomesTheMeanOfTheGoodSamplesOnIt) {
  SuperResolutionBadPixelHandling handling(2);
  cv::Mat_<float> first = frameWith(notANumber, 2, 3);
  cv::Mat_<float> second(goodFrame() * 2);
  handling.detectAndReplaceBadPixel(first);
  handling.detectAndReplaceBadPixel(second);
  const auto replaced = [&](float value, int row, int column, const Shifts& shifts, const Frames& frames) {
    cv::Mat_<float> hr(12, 14, 1.0F);
    hr(row, column) = value;
    handling.replaceMaskedPixel(hr, shifts, frames);
    const float result = hr(row, column);
    hr(row, column) = 1;
    EXPECT_EQ(cv::countNonZero(hr != 1.0F), 0);
    return result;
  };
  const Frames frames{first, second};
  const float at11 = (goodFrame()(1, 1) * 3) / 2;
  for (const std::uint32_t flag : {129U, 130U, 132U})
    EXPECT_EQ(replaced(flagged(flag), 3, 3, Shifts(2), frames), at11);
  EXPECT_EQ(bitsOf(replaced(flagged(133), 3, 3, Shifts(2), frames)), 133U);
  EXPECT_EQ(replaced(flagged(129), 5, 7, Shifts(2), frames), second(2, 3))
      << "the first frame is defective there";
  EXPECT_EQ(replaced(flagged(129), 0, 0, {{-0.9F, -0.9F}, {7, 0}}, frames), first(0, 0))
      << "(-1, 0) is index 0";
  const Shifts outside{{-1, 0}, {0, 6}};
  EXPECT_EQ(bitsOf(replaced(flagged(129), 0, 0, outside, frames)), 129U) << "no sample: the flag stays";

  EXPECT_EQ(replaced(flagged(129), 3, 3, Shifts(1), frames), first(1, 1)) << "one shift";
  EXPECT_EQ(replaced(flagged(129), 3, 3, Shifts(2), {first}), first(1, 1)) << "one frame";
  EXPECT_EQ(replaced(flagged(129), 3, 3, Shifts(2), {first, second(cv::Rect(0, 0, 1, 6))}), first(1, 1))
      << "a narrow frame";
  EXPECT_EQ(replaced(flagged(129), 3, 3, {{notANumber, infinity}, {}}, frames), second(1, 1))
      << "a shift that is no number";
}

TEST(SuperResolutionBadPixelHandling, EmptyFramesViewsAndNoHistoryWork) {
  SuperResolutionBadPixelHandling handling(2);
  cv::Mat_<float> empty;
  EXPECT_EQ(handling.detectAndReplaceBadPixel(empty), 0);
  cv::Mat_<float> whole(10, 11, 7.0F);
  cv::Mat_<float> view = whole(cv::Rect(2, 1, 7, 6));
  frameWith(notANumber, 2, 3).copyTo(view);
  EXPECT_EQ(handling.detectAndReplaceBadPixel(view), 0);
  EXPECT_EQ(whole(3, 5), 43.0F);
  cv::Mat_<float> hr(12, 14, 1.0F);
  handling.maskBadPixel(hr, Shifts(2));
  EXPECT_EQ(bitsOf(hr(4, 6)), 132U);
  handling.replaceMaskedPixel(hr, Shifts(2), {empty, view});
  EXPECT_EQ(bitsOf(hr(4, 6)), 132U) << "the first map gives the bounds, and it is empty";

  SuperResolutionBadPixelHandling none(0);
  EXPECT_EQ(none.detectAndReplaceBadPixel(view), 0);
  EXPECT_NO_THROW(none.maskBadPixel(hr, {}));
}

TEST(SuperResolutionBadPixelHandling, CameraFlagsAreColoured) {
  cv::Mat_<float> img(1, 4);
  img << flagged(129), flagged(130), flagged(132), 20.0F;
  cv::Mat_<cv::Vec3b> colour(1, 4, cv::Vec3b(1, 2, 3));
  SuperResolutionBadPixelHandling(1).colorBadPixel(img, colour);
  EXPECT_EQ(colour(0, 0), cv::Vec3b(0, 0, 255));
  EXPECT_EQ(colour(0, 1), cv::Vec3b(255, 0, 0));
  EXPECT_EQ(colour(0, 2), cv::Vec3b(1, 2, 3));
  EXPECT_EQ(colour(0, 3), cv::Vec3b(1, 2, 3));
}
