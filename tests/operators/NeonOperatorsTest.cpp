// Needs neither OpenCV nor the rest of the library: scripts/test-arm64 runs it on that processor too.

#include "vision/superresolution/detail/operators/NeonOperators.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "tests/support/Checks.h"
#include "tests/support/NeonMultiplyAdd.h"
#include "vision/superresolution/detail/operators/PlainOperators.h"

using movra::test::sameBits;
using movra::vision::detail::NeonOperators;
using movra::vision::detail::PlainOperators;
using movra::vision::detail::SparseGrid;

namespace {

using Floats = std::vector<float>;

/// Numbers in [-2, 2), every fifth one a zero of either sign.
Floats randomFloats(int count, unsigned seed) {
  std::mt19937 random(seed);
  Floats values;
  for (int i = 0; i < count; ++i) {
    const auto number = static_cast<float>(static_cast<std::int32_t>(random()) >> 8) * 0x1p-22f;
    values.push_back(i % 5 == 0 ? 0.0f * number : number);
  }
  return values;
}

/// Both forms of the operators. Inputs have their exact sizes, for the address sanitizer; after the outputs are floats
/// that nobody may write.
struct Case {
  int width, height;
  int lowSize = width * height;
  int paddedWidth = 2 * width + 5, paddedHeight = 2 * height + 5;
  int paddedSize = paddedWidth * paddedHeight;
  Floats image = randomFloats(lowSize, 1), hr = randomFloats(paddedSize, 2);
  Floats psfX = {0, 0.07f, 0.43f, 0.43f, 0.07f, 0}, psfY = {0.16f, 0.85f, 0.43f, -0.29f, -0.15f, 0};
  Floats mask = randomFloats(lowSize, 3);
  NeonOperators vectors{width, height};
  static Floats output(int size) { return Floats(static_cast<std::size_t>(size) + 8, 1e30f); }

  Floats transposed() {
    Floats out = output(paddedSize);
    vectors.fullConvFromSparse(image.data(), psfX.data(), psfY.data(), mask.data(), out.data());
    return out;
  }
  Floats imaged() {
    Floats out = output(lowSize);
    vectors.validCorrToSparse(hr.data(), psfX.data(), psfY.data(), out.data());
    return out;
  }
  PlainOperators plain() const {
    return {SparseGrid(2 * width, 2 * height, 2.0f), paddedWidth, paddedHeight, 6, 6, psfX.data(), psfY.data()};
  }
  Floats plainlyTransposed() const {
    Floats out = output(paddedSize), columns = output(paddedHeight * width);
    plain().fullConvFromSparse(image.data(), mask.data(), columns.data(), out.data());
    return out;
  }
  Floats plainlyImaged() const {
    Floats out = output(lowSize), columns = output(paddedHeight * width);
    plain().validCorrToSparse(hr.data(), columns.data(), out.data());
    return out;
  }
};

}  // namespace

TEST(NeonOperators, EqualThePlainLoopsAtEveryWidthAndStayInsideTheArrays) {
  for (int width = 1; width <= 40; ++width) {
    for (const int height : {1, 2, 3, 4, 9}) {
      Case c{width, height};
      if (width % 2 == 0) {
        std::swap(c.psfX, c.psfY);
      }
      for (int call = 0; call < 2; ++call) {  // nothing of a call is left in the next
        ASSERT_TRUE(sameBits(c.transposed(), c.plainlyTransposed())) << width << 'x' << height;
        ASSERT_TRUE(sameBits(c.imaged(), c.plainlyImaged())) << width << 'x' << height;
      }
    }
  }
}

TEST(NeonOperators, ProductsAreRoundedBeforeTheyAreAdded) {
#if defined(__x86_64__)
  if (!__builtin_cpu_supports("fma")) {
    GTEST_SKIP() << "the other form needs a processor with fused operations";
  }
#endif
  // Of (1 + e)^2 = 1 + 2e + e^2 a float keeps 1 + 2e, of (3 + e)^2 it keeps 9 + 6e.
  const float e = 0x1p-12f;
  const float factor[4] = {1 + e, 3 + e, -1 - e, 3};
  const float sum[4] = {-(1 + 2 * e), -(9 + 6 * e), 1, -9};
  float result[4];
  movra::test::neonMultiplyAdd(sum, factor, factor, result);
  EXPECT_EQ(Floats(result, result + 4), (Floats{0, 0, 2 + 2 * e, 0}));
}
