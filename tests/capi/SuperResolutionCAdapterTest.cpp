// Through the shared library, as an application meets it.
#include "vision/superresolution/SuperResolutionCAdapter.h"

#include <climits>
#include <functional>
#include <stdexcept>

#include "tests/support/FlushedSubnormals.h"
#include "tests/support/SilentConsole.h"
#include "tests/support/Test.h"
#include "vision/superresolution/SrFloat.h"

using namespace movra::test;

namespace {

constexpr int width = 48;
constexpr int height = 40;
constexpr float defaultSigma = 0.683f;

struct Size {
  int width;
  int height;
};

/// `count` frames of the synthetic scene, at most seven, each at another place; the second lies still.
std::vector<Image> makeFrames(int count = 5, Size size = {width, height}) {
  std::vector<Shift> shifts = smallShifts;
  shifts.insert(shifts.end(), {{0.23f, -0.48f}, {-0.12f, 0.29f}});
  shifts.resize(static_cast<std::size_t>(count));
  return makeBurst({size.width, size.height, shifts}).frames;
}

/// One frame, displaced.
Image makeFrame(Shift shift, Size size = {width, height}) {
  return makeBurst({size.width, size.height, {shift}}).frames[0];
}

/// More than the error, in kelvin, of the image from makeFrames(), and less than that of a misplaced one.
constexpr double goodError = 0.35;

double errorOf(const Image& image) {
  return distance(image, makeBurst({width, height}).truth, 2 * width, 8);
}

std::size_t at(int x, int y) {
  return static_cast<std::size_t>(y * width + x);
}

/// In the result, the first pixel that comes from the frame's pixel (x, y).
std::size_t hrAt(int x, int y) {
  return static_cast<std::size_t>(2 * y * 2 * width + 2 * x);
}

std::string lastError() {
  char text[256] = "";
  SuperResolution_getErrorMessage(text, sizeof text - 1);
  return text;
}

void expectOutcome(int code, int expectedCode, const std::string& text) {
  EXPECT_EQ(code, expectedCode);
  EXPECT_EQ(lastError(), text);
}

/// Leaves a text behind that no other call leaves, so that a call that sets none is seen.
void markLastError() {
  const int context = SuperResolution_init(0, 1);
  float pixel = 0;
  SuperResolution_addImage(context, &pixel);
  SuperResolution_release(context);
}
const std::string markedText = "Size of expected Ir images unknown";

/// Keeps the engine's report off the test's output, and the registry empty between tests.
class SuperResolutionCAdapterTest : public testing::Test {
 protected:
  ~SuperResolutionCAdapterTest() override {
    for (const int context : opened)
      if (SuperResolution_isContextValid(context)) {
        SuperResolution_release(context);
      }
  }

  int open(Size size = {width, height}) {
    opened.push_back(SuperResolution_init(size.width, size.height));
    return opened.back();
  }

  int openAndFeed(const std::vector<Image>& burst) {
    const int context = open();
    for (const Image& frame : burst) {
      EXPECT_EQ(SuperResolution_addImage(context, frame.data()), 0) << lastError();
    }
    return context;
  }

  static Image fetch(int context, int expectedCode = SUPERRESOLUTION_SUCCESS) {
    int columns = 0, rows = 0;
    SuperResolution_queryOutputImageSize(context, &columns, &rows);
    Image image(static_cast<std::size_t>(columns * rows), -1.0f);
    EXPECT_EQ(SuperResolution_getSuperresolutionImage(context, image.data()), expectedCode);
    return image;
  }

  const SilentConsole console;
  std::vector<int> opened;
};

/// A block in which most pixels lack the good neighbours to be repaired from.
void spoil(Image& frame, float value) {
  for (int y = 10; y < 16; ++y) {
    std::fill_n(&frame[at(10, y)], 6, value);
  }
}

/// What the engine itself makes of a burst.
Image engineImage(const std::vector<Image>& burst, float sigma = defaultSigma, int referenceIndex = 3) {
  movra::vision::SrFloat<movra::vision::SrFloatRegistration2> engine(width, height, 5, 2.0f);
  engine.setReferenceIndex(referenceIndex);
  engine.setPsfSigma(sigma);
  for (const Image& frame : burst) {
    engine.addFrame(frame.data());
  }
  Image image(static_cast<std::size_t>(engine.getOutputSize()));
  engine.computeSR(image.data());
  return image;
}

TEST_F(SuperResolutionCAdapterTest, LifeOfAContext) {
  const std::vector<Image> burst = makeFrames(7);
  const int context = open();
  EXPECT_TRUE(SuperResolution_isContextValid(context));

  int columns = 0, rows = 0;
  expectOutcome(SuperResolution_queryOutputImageSize(context, &columns, &rows), -5, "Not enough input images (<5)");
  EXPECT_EQ(cv::Size(columns, rows), cv::Size(2 * width, 2 * height));
  const Image zeros(4 * width * height, 0.0f);
  EXPECT_TRUE(sameBits(fetch(context, -5), zeros));

  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(SuperResolution_addImage(context, burst[i].data()), 0);
  }
  Image untouched = zeros;
  EXPECT_EQ(SuperResolution_getSuperresolutionImage(context, untouched.data()), -5);
  EXPECT_TRUE(sameBits(untouched, zeros)) << "only the fifth frame or a query reconstructs";
  EXPECT_TRUE(sameBits(fetch(context, -5), engineImage({burst.begin(), burst.begin() + 4})));

  for (std::size_t i = 4; i < burst.size(); ++i) {
    EXPECT_EQ(SuperResolution_addImage(context, burst[i].data()), 0);
    EXPECT_TRUE(sameBits(fetch(context), engineImage({burst.begin(), burst.begin() + static_cast<int>(i) + 1})));
  }
  EXPECT_EQ(SuperResolution_queryOutputImageSize(context, nullptr, nullptr), 0);
  EXPECT_EQ(SuperResolution_release(context), 0);
  EXPECT_FALSE(SuperResolution_isContextValid(context));

  // A new context in the same slot knows nothing of the old one.
  EXPECT_EQ(open(), context);
  EXPECT_TRUE(sameBits(fetch(context, -5), zeros));
}

TEST_F(SuperResolutionCAdapterTest, TheLowestFreeHandleIsTakenAndNoneByAFailedInit) {
  namespace sr = movra::vision;  // the same functions by their other names
  const int first = sr::SuperResolution_init(8, 8), second = open(), third = open();
  EXPECT_EQ(second, first + 1);
  EXPECT_EQ(third, first + 2);
  EXPECT_EQ(sr::SuperResolution_release(second), 0);
  EXPECT_EQ(sr::SuperResolution_release(first), 0);
  EXPECT_EQ(open(), first);
  EXPECT_EQ(open(), second);
  for (const Size size : {Size{-1, 8}, Size{INT_MIN, INT_MIN}, Size{50000, 50000}}) {
    EXPECT_THROW(SuperResolution_init(size.width, size.height), std::bad_alloc) << size.width;
  }
  EXPECT_EQ(open(), third + 1);
}

TEST_F(SuperResolutionCAdapterTest, ContextsDoNotDisturbEachOther) {
  const Size small{32, 36};
  const std::vector<Image> burst = makeFrames(6);
  const std::vector<Image> smallBurst = makeFrames(6, small);
  const int context = open(), other = open(small);
  SuperResolution_setCameraAndLensType(other, "m01 FOV 10");
  for (std::size_t i = 0; i < burst.size(); ++i) {
    EXPECT_EQ(SuperResolution_addImage(context, burst[i].data()), 0);
    EXPECT_EQ(SuperResolution_addImage(other, smallBurst[i].data()), 0);
    if (i == 2) {
      open({16, 16});  // the registry grows under both
    }
  }
  EXPECT_EQ(fetch(other).size(), 4U * 32 * 36);
  EXPECT_EQ(SuperResolution_release(other), 0);
  EXPECT_TRUE(sameBits(fetch(context), engineImage(burst)));
}

TEST_F(SuperResolutionCAdapterTest, InvalidHandles) {
  const int context = open(), released = open();
  SuperResolution_release(released);
  int size = 5;
  float pixel = 5;
  for (const int handle : {released, released + 1, -1, INT_MIN, INT_MAX}) {
    EXPECT_FALSE(SuperResolution_isContextValid(handle));
    const std::function<int()> calls[] = {
        [=] { return SuperResolution_release(handle); },
        [=] { return SuperResolution_addImage(handle, nullptr); },
        [&] { return SuperResolution_queryOutputImageSize(handle, &size, &size); },
        [&] { return SuperResolution_getSuperresolutionImage(handle, &pixel); },
        [=] { return SuperResolution_setReferenceFrame(handle, 77); },
    };
    for (const auto& call : calls) {
      markLastError();
      expectOutcome(call(), -999, "Context invalid.");
    }
    markLastError();
    expectOutcome(SuperResolution_setCameraAndLensType(handle, "m01 FOV 10"), 0, markedText);
  }
  EXPECT_EQ(size, 5);
  EXPECT_EQ(pixel, 5);
  EXPECT_TRUE(SuperResolution_isContextValid(context));
}

TEST_F(SuperResolutionCAdapterTest, MissingPointersAndSizes) {
  const int context = open();
  expectOutcome(SuperResolution_addImage(context, nullptr), -999, "ir image data pointer is NULL");
  expectOutcome(SuperResolution_getSuperresolutionImage(context, nullptr), -999, "Memcpy called on nullptr!!!!");
  for (const Size size : {Size{0, 6}, Size{6, 0}}) {
    const int empty = open(size);
    float pixel = 1;
    expectOutcome(SuperResolution_addImage(empty, nullptr), -999, "Size of expected Ir images unknown");
    EXPECT_EQ(SuperResolution_queryOutputImageSize(empty, nullptr, nullptr), -5);
    expectOutcome(SuperResolution_getSuperresolutionImage(empty, &pixel), -999, "Memcpy called on nullptr!!!!");
    EXPECT_EQ(pixel, 1.0f);
  }
}

TEST_F(SuperResolutionCAdapterTest, ErrorTextIsCopiedAsStrncpyDoes) {
  markLastError();
  const int length = static_cast<int>(markedText.size());
  const auto copied = [](int count) {
    std::string buffer(64, 'x');
    EXPECT_EQ(SuperResolution_getErrorMessage(&buffer[0], count), 0);
    return buffer;
  };
  EXPECT_EQ(copied(4), "Size" + std::string(60, 'x'));
  EXPECT_EQ(copied(length), markedText + std::string(64 - markedText.size(), 'x'));
  EXPECT_EQ(copied(60), markedText + std::string(60 - markedText.size(), '\0') + "xxxx");
  EXPECT_EQ(copied(-1), std::string(64, 'x'));
  EXPECT_EQ(SuperResolution_getErrorMessage(nullptr, 10), 0);

  open();  // success clears nothing
  expectOutcome(SuperResolution_setLogFile("log"), 0, markedText);
}

TEST_F(SuperResolutionCAdapterTest, ReferenceFrame) {
  const std::vector<Image> burst = makeFrames();
  for (int index = 0; index < 5; ++index) {
    const int context = open();
    EXPECT_EQ(SuperResolution_setReferenceFrame(context, index), 0);
    for (const int wrong : {-1, 5}) {
      EXPECT_EQ(textThrownBy([&] { SuperResolution_setReferenceFrame(context, wrong); }),
                "Invalid reference index specified.");
    }
    for (const Image& frame : burst) {
      SuperResolution_addImage(context, frame.data());
    }
    EXPECT_TRUE(sameBits(fetch(context), engineImage(burst, defaultSigma, index))) << index;
  }
}

TEST_F(SuperResolutionCAdapterTest, CameraTableShowsInTheImage) {
  const char* const none = "as before";
  const std::vector<Image> burst = makeFrames();
  // Camera and lens are written as far as found.
  for (const auto& [description, expectedCamera, expectedLens, isFound, sigma] :
       {std::tuple("m01 FOV 7", "cam1", 7, true, 0.81f),
        {"m02 FOV 7", "cam2", 7, true, 0.01f},
        {"m03 FOV 7", "cam3", 7, true, 0.01f},
        {"m04 FOV 7", "cam4", 7, true, 0.01f},
        {"m05 FOV 90", "cam5", 90, true, 0.01f},
        {"m07 FOV 22.9", "cam7", 22, true, 0.65f},
        {"m07 FOV 23", "cam7", 23, true, 0.35f},
        {"m07 FOV 99999999999", "cam7", INT_MAX, true, 0.35f},
        {"m07 FOV wide", "cam7", 0, true, 0.65f},
        {"m08 FOV 15 FOV 30", "cam8", 15, true, 0.34f},                            // the first counts
        {"serial 4711/m04-x, lens FOV\t 7 deg, was m01", "cam1", 7, true, 0.81f},  // rows in order
        {"FOV7m06", "cam6", 7, true, 0.625f},
        {"m01 fov 7", "cam1", 77, false, defaultSigma},  // no lens
        {"M01 FOV 7", none, 77, false, defaultSigma},
        {"m06 FOV", "cam6", -1, false, defaultSigma}}) {
    std::string camera = none;
    int lens = 77;
    SCOPED_TRACE(description);
    EXPECT_EQ(SuperResolution_getCameraAndLensType(description, camera, lens), isFound);
    EXPECT_EQ(camera, expectedCamera);
    EXPECT_EQ(lens, expectedLens);

    const int context = open();
    EXPECT_EQ(SuperResolution_setCameraAndLensType(context, "m08 FOV 1"), 0);  // the last one counts
    EXPECT_EQ(SuperResolution_setCameraAndLensType(context, description), 0);
    for (const Image& frame : burst) {
      SuperResolution_addImage(context, frame.data());
    }
    EXPECT_TRUE(sameBits(fetch(context), engineImage(burst, sigma)));
    EXPECT_EQ(sameBits(fetch(context), engineImage(burst, defaultSigma)), sigma == defaultSigma);
  }
  markLastError();
  EXPECT_THROW(SuperResolution_setCameraAndLensType(open(), nullptr), std::logic_error);
  EXPECT_EQ(lastError(), markedText);
}

TEST_F(SuperResolutionCAdapterTest, FramesWithoutStructureAreReportedAndAdded) {
  const char* const text = "  image has not enough structure";
  const Image flat(width * height, 300.0f);
  Image atThreshold = flat, below = flat, flatWithFallback = flat;
  atThreshold[at(20, 20)] = 302.0f;
  below[at(20, 20)] = std::nextafter(302.0f, 0.0f);
  flatWithFallback[at(20, 20)] = flatWithFallback[at(21, 20)] = notANumber;  // NaN does not count as a value

  const int context = open();
  markLastError();
  expectOutcome(SuperResolution_addImage(context, atThreshold.data()), 0, markedText);
  expectOutcome(SuperResolution_addImage(context, below.data()), -4, text);
  markLastError();
  expectOutcome(SuperResolution_addImage(context, flatWithFallback.data()), -2, text);

  const int nothing = open();
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(SuperResolution_addImage(nothing, flat.data()), -4);
  }
  EXPECT_TRUE(sameBits(fetch(nothing), Image(4 * width * height, 0.0f))) << "nothing to register by";
  for (const Image& frame : makeFrames()) {
    SuperResolution_addImage(nothing, frame.data());
  }
  EXPECT_LT(errorOf(fetch(nothing)), goodError) << "good frames bring it back";
}

TEST_F(SuperResolutionCAdapterTest, BadPixels) {
  std::vector<Image> burst = makeFrames();
  const int context = open();
  markLastError();
  burst[0][at(20, 20)] = burst[0][at(21, 20)] = 6000.0f;  // neither has four good neighbours
  burst[1][at(20, 20)] = notANumber;                      // repaired from its neighbours
  burst[2] = Image(width * height, infinity);             // has, strangely, structure
  burst[3][at(0, 0)] = -infinity;                         // a corner has two neighbours
  const int codes[] = {-2, 0, -2, -2};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(SuperResolution_addImage(context, burst[i].data()), codes[i]) << i;
  }
  EXPECT_EQ(lastError(), markedText);
  for (const float value : {notANumber, asFloat(132), asFloat(133)}) {
    Image rejected = makeFrame({0, 0});
    spoil(rejected, value);
    expectOutcome(SuperResolution_addImage(context, rejected.data()), -999,
                  "Too many defect pixels. No processing possible.");
    Image image(4 * width * height);
    EXPECT_EQ(SuperResolution_getSuperresolutionImage(context, image.data()), -5) << "not counted";
  }
  // Rejected frames are in the window, and the context goes on: five good frames push them out.
  for (const Image& frame : makeFrames()) {
    SuperResolution_addImage(context, frame.data());
  }
  EXPECT_LT(errorOf(fetch(context)), goodError);
}

TEST_F(SuperResolutionCAdapterTest, FlagsSurviveAHostThatFlushesSubnormals) {
  for (const std::uint32_t flag : {129U, 130U}) {
    std::vector<Image> burst = makeFrames();
    for (Image& frame : burst)
      for (int y = 14; y < 24; ++y) {
        std::fill_n(&frame[at(16, y)], 10, asFloat(flag));
      }
    const Image expected = fetch(openAndFeed(burst));
    // In the middle of the hole no frame has a sample: the flag stays.
    EXPECT_TRUE(sameBits({expected[hrAt(21, 19)]}, {asFloat(flag)}));
    withFlushedSubnormals([&] { EXPECT_TRUE(sameBits(fetch(openAndFeed(burst)), expected)); });
  }
}

TEST_F(SuperResolutionCAdapterTest, OutcomesOfTheReconstruction) {
  const Size size{160, 64};
  const std::vector<Image> burst = makeFrames(5, size);
  const auto codeOfFifth = [&](const Image& fifth) {
    const int context = open(size);
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(SuperResolution_addImage(context, burst[i].data()), 0);
    }
    markLastError();
    return SuperResolution_addImage(context, fifth.data());
  };
  // A warmer frame lies where it should but does not match.
  Image warmer = burst[4];
  for (float& value : warmer) {
    value += 4.0f;
  }
  EXPECT_EQ(codeOfFifth(warmer), -3);
  EXPECT_EQ(lastError(), markedText);
  Image withFallback = warmer;
  withFallback[80] = withFallback[81] = 6000.0f;
  EXPECT_EQ(codeOfFifth(withFallback), -3) << "before -2";
  EXPECT_EQ(codeOfFifth(makeFrame({7, 0}, size)), 0) << "beyond a tenth of the height: not told";
}

}  // namespace
