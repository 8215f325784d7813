#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Checks.h"
#include "tests/support/SilentConsole.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

// What the tests of the C interface share: frames of a known scene, and a fixture.

using namespace movra::test;

inline constexpr int width = 48;
inline constexpr int height = 40;
inline constexpr float defaultSigma = 0.683f;

struct Size {
  int width;
  int height;
};

/// `count` frames of the synthetic scene, at most seven, each at another place; the second lies still.
inline std::vector<Image> makeFrames(int count = 5, Size size = {width, height}) {
  std::vector<Shift> shifts = smallShifts;
  shifts.insert(shifts.end(), {{0.23f, -0.48f}, {-0.12f, 0.29f}});
  shifts.resize(static_cast<std::size_t>(count));
  return makeBurst({size.width, size.height, shifts}).frames;
}

/// One frame, displaced.
inline Image makeFrame(Shift shift, Size size = {width, height}) {
  return makeBurst({size.width, size.height, {shift}}).frames[0];
}

/// More than the error, in kelvin, of the image from makeFrames(), and less than that of a misplaced one.
inline constexpr double goodError = 0.35;

inline double errorOf(const Image& image) {
  return distance(image, makeBurst({width, height}).truth, 2 * width, 8);
}

inline std::size_t at(int x, int y) {
  return static_cast<std::size_t>(y * width + x);
}

/// In the result, the first pixel that comes from the frame's pixel (x, y).
inline std::size_t hrAt(int x, int y) {
  return static_cast<std::size_t>(2 * y * 2 * width + 2 * x);
}

inline std::string lastError() {
  char text[256] = "";
  SuperResolution_getErrorMessage(text, sizeof text - 1);
  return text;
}

inline void expectOutcome(int code, int expectedCode, const std::string& text) {
  EXPECT_EQ(code, expectedCode);
  EXPECT_EQ(lastError(), text);
}

/// Leaves a text behind that no other call leaves, so that a call that sets none is seen.
inline void markLastError() {
  const int context = SuperResolution_init(0, 1);
  float pixel = 0;
  SuperResolution_addImage(context, &pixel);
  SuperResolution_release(context);
}
inline const std::string markedText = "Size of expected Ir images unknown";

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
