#include "vision/superresolution/SrFloatMinimization.h"

#include "tests/plain/PlainMinimization.h"
#include "tests/support/Test.h"

using namespace movra::test;
using movra::vision::SrFloatMinimization;

namespace {

constexpr int reference = 1;

struct Result {
  int iterations;
  Image image;
};

/// Takes the burst by value, because the minimisation changes its frames.
template <class Minimization>
Result minimized(Minimization& minimization, SyntheticBurst burst) {
  Result result{0, Image(burst.truth.size(), 1e30f)};
  auto frames = burst.framePointers();
  auto masks = burst.maskPointers();
  result.iterations = minimization.minimize(static_cast<int>(frames.size()), reference, frames.data(),
                                            burst.shifts.data(), masks.data(), result.image.data());
  return result;
}

SyntheticBurst noisyBurst(int width, int height) {
  return makeBurst({width, height, smallShifts, 0.1});
}

}  // namespace

TEST(SrFloatMinimization, EqualsThePlainLoopsAtEveryWidthAndInstructionSet) {
  // All small widths, and an image whose edge weights are too many to be kept.
  for (int width = 1; width <= 300; width += width < 40 ? 1 : 260) {
    const int height = width > 40 ? 44 : width % 7 == 0 ? 23 : 1 + width % 7;
    if (width * height == 1) {
      // one pixel has no standard deviation
      continue;
    }
    SyntheticBurst burst = noisyBurst(width, height);
    burst.shifts[3] = {0.0f, -0.83f};
    burst.shifts[4] = {0.71f, 0.0f};
    const char weights[] = {1, 1, 0, 1, 1, 2, 1, -1, 1};
    for (std::size_t i = 0; i < burst.masks[2].size(); ++i) {
      burst.masks[2][i] = weights[i % 9];
    }

    PlainMinimization plain(width, height, 5);
    if (width % 2 == 0) {  // other parameters than the defaults
      plain.psfSigma = 0.45f;
      plain.weightTV = width % 3 == 0 ? 1.0f : 5.0f * static_cast<float>(width * width);
      plain.epsilon = 0.002f * static_cast<float>(width * width);
      plain.relRes = 0.05f;
      plain.maxIter = 25;
    }
    const Result expected = minimized(plain, burst);
    Image x = randomImage(plain.paddedSize(), -1, 1, 5), expectedGradient(x.size()), expectedStencil(x.size());
    auto masks = burst.maskPointers();
    plain.gradient(x.data(), 5, masks.data(), expectedGradient.data());
    plain.gradient(x.data(), 0, masks.data(), expectedStencil.data());

    onEveryInstructionSet([&] {
      SCOPED_TRACE(testing::Message() << width << 'x' << height);
      SrFloatMinimization minimization(width, height, 5, 2.0f);
      minimization.setPsfSigma(plain.psfSigma);
      minimization.setWeightTV(plain.weightTV);
      minimization.setEpsilon(plain.epsilon);
      minimization.setRelRes(plain.relRes);
      minimization.setMaxIter(plain.maxIter);
      const Result result = minimized(minimization, burst);
      EXPECT_EQ(result.iterations, expected.iterations);
      EXPECT_TRUE(sameBits(result.image, expected.image));
      Image gradient(x.size(), 1e30f);
      minimization.gradient(x.data(), 5, masks.data(), gradient.data());
      EXPECT_TRUE(sameBits(gradient, expectedGradient));
      minimization.gradient(x.data(), 0, masks.data(), gradient.data());
      EXPECT_TRUE(sameBits(gradient, expectedStencil)) << "no frames: L x alone";
      EXPECT_TRUE(sameBits(minimized(minimization, burst).image, expected.image));
    });
  }
}

TEST(SrFloatMinimization, ReconstructionHasTheSameBitsInEveryBuild) {
  const SyntheticBurst burst = noisyBurst(64, 48);
  onEveryInstructionSet([&] {
    SrFloatMinimization minimization(64, 48, 5, 2.0f);
    // Taken with g++ 12.2 on x86-64. It may change only with an entry under "Numerics" in the changelog.
    EXPECT_EQ(digest(minimized(minimization, burst).image), 2670908118u);
  });
}

TEST(SrFloatMinimization, TheBudgetBoundsTheIterations) {
  const SyntheticBurst burst = noisyBurst(20, 15);
  SrFloatMinimization minimization(20, 15, 5, 2.0f);
  const auto withBudget = [&](int budget, float residue) {
    minimization.setMaxIter(budget);
    minimization.setRelRes(residue);
    return minimized(minimization, burst);
  };
  for (const int budget : {1, 8}) {
    EXPECT_EQ(withBudget(budget, 0).iterations, budget);
  }
  const Result backProjection = withBudget(8, 1e6f);  // the first estimate passes
  EXPECT_EQ(backProjection.iterations, 0);
  for (const int budget : {0, -3}) {
    EXPECT_TRUE(sameBits(withBudget(budget, 0).image, backProjection.image));
  }
}

TEST(SrFloatMinimization, UselessFramesLeaveNoTrace) {
  const SyntheticBurst burst = noisyBurst(13, 9);
  SrFloatMinimization minimization(13, 9, 5, 2.0f);
  const Image expected = minimized(minimization, burst).image;
  SyntheticBurst constant = burst, invalid = burst, masked = burst;
  constant.frames[reference].assign(constant.frames[reference].size(), 300.0f);
  invalid.frames[0].assign(invalid.frames[0].size(), notANumber);
  invalid.shifts[2].x = infinity;
  for (Mask& mask : masked.masks) {
    mask.assign(mask.size(), 0);
  }
  for (const SyntheticBurst* useless : {&constant, &invalid, &masked}) {
    minimized(minimization, *useless);
    EXPECT_TRUE(sameBits(minimized(minimization, burst).image, expected));
  }
}

TEST(SrFloatMinimization, WeightsStayFrozenWhenTheRightHandSideChanges) {
  const SyntheticBurst burst = noisyBurst(13, 9);
  SrFloatMinimization minimization(13, 9, 5, 2.0f);
  minimization.setRelRes(1e6f);  // the first estimate passes: the weights are those of the right-hand side
  minimized(minimization, burst);
  Image x = randomImage(31 * 23, -1, 1, 5), before(x.size()), after(x.size());
  SyntheticBurst other = burst;
  auto masks = other.maskPointers();
  minimization.gradient(x.data(), 5, masks.data(), before.data());
  minimization.setMaxIter(0);
  other.frames[0] = burst.frames[3];
  minimized(minimization, other);
  minimization.gradient(x.data(), 5, masks.data(), after.data());
  EXPECT_TRUE(sameBits(after, before));
}

TEST(SrFloatMinimization, BadArgumentsThrow) {
  SyntheticBurst burst = noisyBurst(6, 5);
  auto frames = burst.framePointers();
  auto masks = burst.maskPointers();
  Image out(120), padded(17 * 15);
  SrFloatMinimization minimization(6, 5, 4, 2.0f);
  const auto minimize = [&](int count, int refIndex) {
    minimization.minimize(count, refIndex, frames.data(), burst.shifts.data(), masks.data(), out.data());
  };
  for (const auto& [count, refIndex] : {std::pair(0, 0), {-1, 0}, {5, 0}, {4, 4}, {4, -1}})  // made for four
    EXPECT_THROW(minimize(count, refIndex), movra::Exception) << count << ' ' << refIndex;
  for (const int count : {-1, 5}) {
    EXPECT_THROW(minimization.gradient(padded.data(), count, masks.data(), padded.data()), movra::Exception);
    EXPECT_THROW(minimization.conjugateGradients(count, masks.data(), 1), movra::Exception);
    EXPECT_THROW(minimization.iteration(0, count, masks.data()), movra::Exception);
    EXPECT_THROW(minimization.generatePsfs(count, burst.shifts.data()), movra::Exception);
  }
  minimization.generatePsfs(0, nullptr);  // empty sums
  minimization.conjugateGradients(0, nullptr, 2);
  minimization.iteration(0, 0, nullptr);
  EXPECT_EQ(burst.frames[0], noisyBurst(6, 5).frames[0]) << "frames are untouched";
  EXPECT_THROW(SrFloatMinimization(-1, 5, 5, 2.0f), std::bad_array_new_length);
  EXPECT_THROW(SrFloatMinimization(65536, 65536, 5, 0.01f), std::bad_array_new_length);
  // A float does not hold the width of the padded grid.
  EXPECT_THROW(SrFloatMinimization(8388608, 1, 1, 2.0f), std::bad_array_new_length);
}
