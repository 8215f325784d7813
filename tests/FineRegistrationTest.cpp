#include "vision/superresolution/detail/FineRegistration.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numeric>

#include <gtest/gtest.h>

#include "tests/support/InstructionSetGuard.h"
#include "tests/support/SyntheticBurst.h"

namespace movra::vision::detail {
namespace {

using test::Image;
using test::Mask;
using test::Shift;

constexpr int width = 53;
constexpr int height = 38;
constexpr int pixels = width * height;
constexpr int radius = 3;

// The fine step as plain loops over whole images, one sum after the other.
class StraightFineRegistration {
 public:
  StraightFineRegistration(const Image& reference_, float regError_)
      : reference(reference_), regError(regError_) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        gradX.push_back(derivative(at(x, y), 1, x, width));
        gradY.push_back(derivative(at(x, y), width, y, height));
      }
    }
  }

  Shift step(const Image& frame, cv::Point_<int> coarse, Mask& mask) const {
    const cv::Rect all(0, 0, width, height);
    const cv::Rect overlap = all & (all - coarse);
    double whole[3] = {};
    double bands[3] = {};
    double e1 = 0;
    double e2 = 0;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const int i = at(x, y);
        const float products[3] = {gradX[i] * gradX[i], gradX[i] * gradY[i], gradY[i] * gradY[i]};
        for (int k = 0; k < 3; ++k) {
          whole[k] += static_cast<double>(products[k]);
          bands[k] += overlap.contains({x, y}) ? 0 : static_cast<double>(products[k]);
        }
        if (overlap.contains({x, y})) {
          e1 += static_cast<double>(gradX[i] * difference(frame, i, coarse));
          e2 += static_cast<double>(gradY[i] * difference(frame, i, coarse));
        }
      }
    }
    const double a = static_cast<double>(static_cast<float>(whole[0])) - bands[0];
    const double b = static_cast<double>(static_cast<float>(whole[1])) - bands[1];
    const double c = static_cast<double>(static_cast<float>(whole[2])) - bands[2];
    const double det = a * c - b * b;
    const auto dx = static_cast<float>((b * e2 - c * e1) / det);
    const auto dy = static_cast<float>((b * e1 - a * e2) / det);
    const auto scale = static_cast<float>(1 / (a + c));

    Image residual(pixels, regError);
    for (int y = overlap.y; y < overlap.br().y; ++y) {
      for (int x = overlap.x; x < overlap.br().x; ++x) {
        const int i = at(x, y);
        const float rest = dx * gradX[i] + dy * gradY[i] + difference(frame, i, coarse);
        residual[i] = rest * rest * scale;
      }
    }
    residual = meansAlong(meansAlong(residual, 1, width), width, height);

    const Shift shift(static_cast<float>(coarse.x) + dx, static_cast<float>(coarse.y) + dy);
    const cv::Point_<int> rounded(static_cast<int>(std::floor(shift.x + 0.5f)),
                                  static_cast<int>(std::floor(shift.y + 0.5f)));
    const cv::Rect covered = all & (all - rounded);
    for (int i = 0; i < pixels; ++i) {
      if (covered.contains({i % width, i / width}) && residual[i] < regError) {
        mask[i] = 1;
      }
    }
    return shift;
  }

 private:
  static int at(int x, int y) { return y * width + x; }

  float derivative(int i, int stride, int place, int length) const {
    if (place == 0) {
      return reference[i + stride] - reference[i];
    }
    return place == length - 1 ? reference[i] - reference[i - stride]
                               : 0.5f * (reference[i + stride] - reference[i - stride]);
  }

  float difference(const Image& frame, int i, cv::Point_<int> coarse) const {
    return frame[i + at(coarse.x, coarse.y)] - reference[i];
  }

  // Mean filter along one axis by a running sum.
  static Image meansAlong(const Image& in, int stride, int length) {
    Image out(pixels);
    for (int first = 0; first < pixels; ++first) {
      if (first / stride % length != 0) {
        continue;  // not the first element of a line
      }
      const auto line = [&](int k) { return in[first + k * stride]; };
      float sum = 0;
      for (int k = 0; k < radius; ++k) {
        sum += line(k);
      }
      for (int k = 0; k < length; ++k) {
        sum += k + radius < length ? line(k + radius) : 0;
        const int count = std::min(k + radius, length - 1) - std::max(k - radius, 0) + 1;
        out[first + k * stride] =
            count == 2 * radius + 1 ? sum * (1.0f / 7.0f) : sum / static_cast<float>(count);
        sum -= k >= radius ? line(k - radius) : 0;
      }
    }
    return out;
  }

  const Image& reference;
  const float regError;
  Image gradX, gradY;
};

TEST(FineRegistration, EqualsPlainLoops) {
  const Image reference = test::randomImage(pixels, 20, 21, 1);
  const Image frame = test::randomImage(pixels, 20, 21, 2);
  const float regError = 1.8f / pixels;  // about the mean residual of unrelated images
  const StraightFineRegistration straight(reference, regError);
  for (const cv::Point_<int> coarse :
       {cv::Point(0, 0), cv::Point(3, -2), cv::Point(-5, 4), cv::Point(17, 9), cv::Point(-16, -31),
        cv::Point(0, 1), cv::Point(width - 4, 0), cv::Point(2, 4 - height)}) {
    SCOPED_TRACE(coarse);
    Mask expected(pixels, 0);
    expected.front() = expected.back() = 1;  // never cleared
    const Mask before = expected;
    const Shift expectedShift = straight.step(frame, coarse, expected);
    const auto trusted = std::count(expected.begin(), expected.end(), 1);
    test::onEveryInstructionSet([&] {
      FineRegistration fine(width, height);
      fine.regError = regError;
      fine.setReference(reference.data());
      Mask mask = before;
      const Shift shift = fine.step(reference.data(), frame.data(), coarse, mask.data());
      EXPECT_FLOAT_EQ(shift.x, expectedShift.x);
      EXPECT_FLOAT_EQ(shift.y, expectedShift.y);
      EXPECT_EQ(mask, expected);

      std::vector<float> floatMask(before.begin(), before.end());
      EXPECT_EQ(fine.step(reference.data(), frame.data(), coarse, floatMask.data()), shift);
      EXPECT_TRUE(std::equal(floatMask.begin(), floatMask.end(), mask.begin()));
    });
    if (coarse == cv::Point(0, 0)) {
      EXPECT_GT(trusted, pixels / 4);
      EXPECT_LT(trusted, pixels * 3 / 4);
    }
  }
}

TEST(FineRegistration, TrustsNothingWithoutACommonFiniteImage) {
  const Image image = test::randomImage(pixels, 20, 21, 3);
  const Mask none(pixels, 0);
  Mask mask = none;
  FineRegistration fine(width, height);
  fine.regError = 1;
  fine.setReference(image.data());
  constexpr int least = std::numeric_limits<int>::min();
  for (const cv::Point_<int> beyond :
       {cv::Point(width, 0), cv::Point(0, -height), cv::Point(-9000, 7), cv::Point(least, least)}) {
    const Shift shift = fine.step(image.data(), image.data(), beyond, mask.data());
    EXPECT_EQ(shift, Shift(static_cast<float>(beyond.x), static_cast<float>(beyond.y)));
  }
  Image holed = image;
  holed[pixels / 2] = std::numeric_limits<float>::quiet_NaN();
  EXPECT_TRUE(std::isnan(fine.step(image.data(), holed.data(), {0, 0}, mask.data()).x));

  const Image flat(pixels, 7);
  fine.setReference(flat.data());
  EXPECT_FALSE(std::isfinite(fine.step(flat.data(), image.data(), {0, 0}, mask.data()).x));
  EXPECT_EQ(mask, none);
}

TEST(FineRegistration, TakesImagesOfAnySize) {
  for (const auto& [columns, rows] :
       {std::pair(1, 1), std::pair(1, 6), std::pair(7, 1), std::pair(2, 2), std::pair(3, 5)}) {
    const Image image = test::randomImage(columns * rows, 0, 1, 4);
    Mask mask(image.size(), 0);
    FineRegistration fine(columns, rows);
    fine.setReference(image.data());
    fine.step(image.data(), image.data(), {0, 0}, mask.data());
    if (columns > 1 && rows > 1) {
      EXPECT_EQ(std::accumulate(mask.begin(), mask.end(), 0), columns * rows) << columns << " x " << rows;
    }
  }
}

}  // namespace
}  // namespace movra::vision::detail
