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

#include "vision/superresolution/SuperResolutionCAdapter.h"

// What the tests of the C interface share: frames of a known scene, and a fixture.

using Image = std::vector<float>;

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

inline float scene(float x, float y) {
  return 300.0F + 6.0F * std::sin(0.7F * x + 0.2F * y) * std::cos(0.6F * y - 0.1F * x) + 0.05F * x;
}

/// A frame displaced by (dx, dy) pixels.
inline Image makeFrame(float dx, float dy, Size size = {width, height}) {
  Image frame;
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x)
      frame.push_back(scene(static_cast<float>(x) - dx, static_cast<float>(y) - dy));
  return frame;
}

/// `count` frames, each at another place.
inline std::vector<Image> makeBurst(int count = 5, Size size = {width, height}) {
  std::vector<Image> burst;
  for (int i = 0; i < count; ++i)
    burst.push_back(makeFrame(0.37F * static_cast<float>(i % 3), -0.29F * static_cast<float>(i % 4), size));
  return burst;
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
