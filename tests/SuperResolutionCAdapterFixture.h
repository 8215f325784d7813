#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

// What the tests of the C interface share: frames of a known scene, and a fixture.

using movra::test::Image;

inline constexpr int width = 48;
inline constexpr int height = 40;
inline constexpr float defaultSigma = 0.683F;
inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
inline constexpr float infinity = std::numeric_limits<float>::infinity();

inline float asFloat(std::uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

inline bool sameBits(const Image& a, const Image& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

struct Size {
  int width;
  int height;
};

/// `count` frames of the synthetic scene, at most seven, each at another place; the second lies still.
inline std::vector<Image> makeFrames(int count = 5, Size size = {width, height}) {
  movra::test::BurstRecipe recipe{size.width, size.height};
  recipe.shifts.insert(recipe.shifts.end(), {{0.23F, -0.48F}, {-0.12F, 0.29F}});
  recipe.shifts.resize(static_cast<std::size_t>(count));
  return movra::test::makeBurst(recipe).frames;
}

/// One frame, displaced.
inline Image makeFrame(movra::test::Shift shift, Size size = {width, height}) {
  movra::test::BurstRecipe recipe{size.width, size.height};
  recipe.shifts = {shift};
  return movra::test::makeBurst(recipe).frames[0];
}

/// More than the error, in kelvin, of the image from makeFrames(), and less than that of a misplaced one.
inline constexpr double goodError = 0.35;

/// Root of the mean squared difference between a result and the scene, away from the borders.
inline double errorOf(const Image& image) {
  static const Image truth = movra::test::makeBurst({width, height}).truth;
  double sum = 0;
  int count = 0;
  for (int y = 8; y < 2 * height - 8; ++y) {
    for (int x = 8; x < 2 * width - 8; ++x, ++count) {
      const auto i = static_cast<std::size_t>(y * 2 * width + x);
      sum += std::pow(static_cast<double>(image[i]) - static_cast<double>(truth[i]), 2);
    }
  }
  return std::sqrt(sum / count);
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
  SuperResolutionCAdapterTest() : console(std::cout.rdbuf(report.rdbuf())) {}
  ~SuperResolutionCAdapterTest() override {
    std::cout.rdbuf(console);
    for (const int context : opened)
      if (SuperResolution_isContextValid(context)) SuperResolution_release(context);
  }

  int open(Size size = {width, height}) {
    opened.push_back(SuperResolution_init(size.width, size.height));
    return opened.back();
  }

  int openAndFeed(const std::vector<Image>& burst) {
    const int context = open();
    for (const Image& frame : burst)
      EXPECT_EQ(SuperResolution_addImage(context, frame.data()), 0) << lastError();
    return context;
  }

  static Image fetch(int context, int expectedCode = SUPERRESOLUTION_SUCCESS) {
    int columns = 0;
    int rows = 0;
    SuperResolution_queryOutputImageSize(context, &columns, &rows);
    Image image(static_cast<std::size_t>(columns * rows), -1.0F);
    EXPECT_EQ(SuperResolution_getSuperresolutionImage(context, image.data()), expectedCode);
    return image;
  }

  std::ostringstream report;
  std::streambuf* console;
  std::vector<int> opened;
};
