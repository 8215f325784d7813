#include "vision/superresolution/SrFloatMinimization.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <string>

#include "benchmarks/straight/StraightMinimization.h"
#include "movra/Exception.h"
#include "tests/support/InstructionSetGuard.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/detail/TvTerm.h"

using movra::test::BurstRecipe;
using movra::test::Image;
using movra::test::makeBurst;
using movra::test::Mask;
using movra::test::onEveryInstructionSet;
using movra::test::randomImage;
using movra::test::Shift;
using movra::test::StraightMinimization;
using movra::test::StraightTv;
using movra::test::SyntheticBurst;
using movra::vision::SrFloatMinimization;

namespace {

constexpr int reference = 1;

struct Result {
  int iterations;
  Image image;
};

/// Takes the burst by value, because the minimisation changes its frames.
template <class Minimization>
Result minimized(Minimization& minimization, SyntheticBurst burst, float factor = 2) {
  const int rows = static_cast<int>(static_cast<float>(burst.height) * factor);
  const int columns = static_cast<int>(static_cast<float>(burst.width) * factor);
  Result result{0, Image(static_cast<std::size_t>(rows * columns), 1e30f)};
  auto frames = burst.framePointers();
  auto masks = burst.maskPointers();
  result.iterations = minimization.minimize(static_cast<int>(frames.size()), reference, frames.data(),
                                            burst.shifts.data(), masks.data(), result.image.data());
  return result;
}

SyntheticBurst noisyBurst(int width, int height) {
  BurstRecipe recipe;
  recipe.width = width;
  recipe.height = height;
  recipe.noise = 0.1;
  return makeBurst(recipe);
}

void expectSameBits(const Image& actual, const Image& expected, const std::string& what) {
  ASSERT_EQ(actual.size(), expected.size()) << what;
  EXPECT_EQ(std::memcmp(actual.data(), expected.data(), actual.size() * sizeof(float)), 0) << what;
}

/// 32-bit FNV-1a over the bytes of the image (G. Fowler, L. C. Noll, K.-P. Vo).
std::uint32_t digest(const Image& image) {
  std::uint32_t hash = 2166136261u;
  for (const float value : image) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    for (int byte = 0; byte < 4; ++byte, bits >>= 8) hash = (hash ^ (bits & 0xffu)) * 16777619u;
  }
  return hash;
}

/// A taps x taps PSF can be read off the back-projection of one sample.
struct Psf {
  Image x, y;
};
Psf psfOf(float sigma, Shift shift) {
  SrFloatMinimization minimization(1, 1, 1, 2.0f);
  minimization.setPsfSigma(sigma);
  minimization.generatePsfs(1, &shift);
  // With one pixel, A = psf psf' and L is not yet frozen: column 0 of A is psf(0, 0) times the PSF.
  Psf psf{Image(6), Image(6)};
  char mask[] = {1};
  char* masks[] = {mask};
  Image ones(49, 1.0f), out(49);
  minimization.gradient(ones.data(), 1, masks, out.data());
  for (std::size_t i = 0; i < 6; ++i) {
    for (std::size_t j = 0; j < 6; ++j) {
      psf.x[i] += out[j * 7 + i];
      psf.y[i] += out[i * 7 + j];
    }
  }
  return psf;
}

void expectNear(const Image& actual, const Image& expected) {
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 2e-6f) << i;
}

}  // namespace

TEST(SrFloatMinimization, BasePsfIsANormalisedGaussianThatShiftsMove) {
  // The Gaussian's mass on [0, 1] and [1, 2], from tables of the normal distribution at 1 and 2 standard deviations.
  const float inner = 0.341345f / (2 * (0.341345f + 0.135905f)),
              outer = 0.135905f / (2 * (0.341345f + 0.135905f));
  const Psf still = psfOf(1.0f, {0, 0});
  for (const Image& psf : {still.x, still.y}) {
    const Image gaussian{0, outer, inner, inner, outer, 0};
    for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(psf[i], gaussian[i], 2e-4f) << i;
  }
  expectNear(psfOf(0.01f, {0, 0}).x, {0, 0, 0.5f, 0.5f, 0, 0});

  const auto& base = still.x;
  const Psf half = psfOf(1.0f, {0.5f, -0.5f});  // a whole cell: to lower and to higher indices
  expectNear(half.x, {base[1], base[2], base[3], base[4], 0, 0});
  expectNear(half.y, {0, 0, base[1], base[2], base[3], base[4]});
  const Psf quarter = psfOf(0.01f, {-0.125f, 0.125f});
  expectNear(quarter.x, {0, 0, 0.375f, 0.5f, 0.125f, 0});
  expectNear(quarter.y, {0, 0.125f, 0.5f, 0.375f, 0, 0});
  const Psf beyond = psfOf(0.01f, {1.0f, -1.0f});  // extrapolated by a cell
  expectNear(beyond.x, {0, 1, 0.5f, -0.5f, 0, 0});
  expectNear(beyond.y, {0, 0, -0.5f, 0.5f, 1, 0});
}

TEST(SrFloatMinimization, EqualsTheStraightLoopsAtEveryWidthAndInstructionSet) {
  for (int width = 1; width <= 40; ++width) {
    const int height = width % 7 == 0 ? 23 : 1 + width % 7;
    if (width * height == 1) continue;  // one pixel has no standard deviation
    SyntheticBurst burst = noisyBurst(width, height);
    burst.shifts[3] = {0.0f, -0.83f};
    burst.shifts[4] = {0.71f, 0.0f};
    const char weights[] = {1, 1, 0, 1, 1, 2, 1, -1, 1};
    for (std::size_t i = 0; i < burst.masks[2].size(); ++i) burst.masks[2][i] = weights[i % 9];

    StraightMinimization straight(width, height, 5);
    const Result expected = minimized(straight, burst);
    Image x = randomImage(straight.paddedSize(), -1, 1, 5), expectedGradient(x.size());
    auto masks = burst.maskPointers();
    straight.gradient(x.data(), 5, masks.data(), expectedGradient.data());

    onEveryInstructionSet([&] {
      const std::string size = std::to_string(width) + "x" + std::to_string(height);
      SrFloatMinimization minimization(width, height, 5, 2.0f);
      const Result result = minimized(minimization, burst);
      EXPECT_EQ(result.iterations, expected.iterations) << size;
      expectSameBits(result.image, expected.image, size);
      Image gradient(x.size(), 1e30f);
      minimization.gradient(x.data(), 5, masks.data(), gradient.data());
      expectSameBits(gradient, expectedGradient, size + " gradient");
      // What the first reconstruction left behind does not show in a second one.
      expectSameBits(minimized(minimization, burst).image, expected.image, size + " again");
    });
  }
}

TEST(SrFloatMinimization, EqualsTheStraightLoopsWithOtherParameters) {
  const SyntheticBurst burst = noisyBurst(33, 21);
  for (const float weight : {1.0f, 20.0f, 1e4f}) {
    for (const float epsilon : {0.003f, 0.4f, 2.0f}) {
      StraightMinimization straight(33, 21, 5);
      straight.psfSigma = 0.45f;
      straight.weightTV = weight;
      straight.epsilon = epsilon;
      straight.relRes = 0.05f;
      straight.maxIter = 25;
      SrFloatMinimization minimization(33, 21, 5, 2.0f);
      minimization.setPsfSigma(straight.psfSigma);
      minimization.setWeightTV(straight.weightTV);
      minimization.setEpsilon(straight.epsilon);
      minimization.setRelRes(straight.relRes);
      minimization.setMaxIter(straight.maxIter);
      const Result expected = minimized(straight, burst), result = minimized(minimization, burst);
      const std::string what = "weight " + std::to_string(weight) + " epsilon " + std::to_string(epsilon);
      EXPECT_EQ(result.iterations, expected.iterations) << what;
      expectSameBits(result.image, expected.image, what);
    }
  }
}

TEST(SrFloatMinimization, TotalVariationTermEqualsTheStraightLoops) {
  onEveryInstructionSet([] {
    for (int width = 3; width <= 70; ++width) {
      for (const int height : {2, 3, 6}) {
        // Differences below, between and above the limits, and flat places.
        Image x = randomImage(width * height, -40, 40, 9);
        for (std::size_t i = 0; i < x.size(); ++i)
          x[i] = i % 5 < 2 ? 1.0f : x[i] / (i % 3 == 0 ? 40.0f : 1.0f);
        const Image operand = randomImage(width * height, -1, 1, 10);
        Image expected(x.size()), result(x.size(), 1e30f);
        StraightTv straight{width, height};
        straight.freezeAt(x.data(), -0.0025f, 0.1f);
        straight.apply(operand.data(), expected.data());
        movra::vision::detail::TvTerm term(width, height, 0);
        term.freezeAt(x.data(), {-0.0025f, 0.1f, 1.0f / 0.1f});
        term.applyRows(operand.data(), 0, height, result.data());
        expectSameBits(result, expected, std::to_string(width) + "x" + std::to_string(height));
      }
    }
  });
}

TEST(SrFloatMinimization, ReconstructionHasTheSameBitsInEveryBuild) {
  const SyntheticBurst burst = noisyBurst(64, 48);
  onEveryInstructionSet([&] {
    SrFloatMinimization minimization(64, 48, 5, 2.0f);
    EXPECT_EQ(digest(minimized(minimization, burst).image), 2670908118u);
  });
}

TEST(SrFloatMinimization, ReconstructionBeatsBicubicEnlargement) {
  SyntheticBurst burst = noisyBurst(64, 48);
  SrFloatMinimization minimization(64, 48, 5, 2.0f);
  const Image image = minimized(minimization, burst).image;
  const cv::Mat_<float> frame(48, 64, burst.frames[reference].data());
  cv::Mat_<float> bicubic;
  cv::resize(frame, bicubic, {}, 2, 2, cv::INTER_CUBIC);
  double error = 0, errorOfBicubic = 0;
  for (int y = 4; y < 92; ++y) {
    for (int x = 4; x < 124; ++x) {
      const auto i = static_cast<std::size_t>(y * 128 + x);
      error += std::pow(double{image[i]} - double{burst.truth[i]}, 2);
      errorOfBicubic += std::pow(double{bicubic(y, x)} - double{burst.truth[i]}, 2);
    }
  }
  EXPECT_GT(10 * std::log10(errorOfBicubic / error), 4.0) << "dB";
}

TEST(SrFloatMinimization, TheBudgetBoundsTheIterations) {
  const SyntheticBurst burst = noisyBurst(20, 15);
  SrFloatMinimization minimization(20, 15, 5, 2.0f);
  minimization.setRelRes(0.0f);
  for (const int budget : {1, 5, 8}) {
    minimization.setMaxIter(budget);
    EXPECT_EQ(minimized(minimization, burst).iterations, budget);
  }
  minimization.setRelRes(1e6f);  // so that the first estimate passes
  EXPECT_EQ(minimized(minimization, burst).iterations, 0);
  const Image backProjection = minimized(minimization, burst).image;
  for (const int budget : {0, -3}) {
    minimization.setMaxIter(budget);
    const Result result = minimized(minimization, burst);
    EXPECT_EQ(result.iterations, 0);
    expectSameBits(result.image, backProjection, "no budget");
  }
}

TEST(SrFloatMinimization, AZeroMaskRemovesItsFrame) {
  SyntheticBurst burst = noisyBurst(24, 18);
  SyntheticBurst without = burst;
  burst.frames[3].assign(burst.frames[3].size(), 5000.0f);
  burst.masks[3].assign(burst.masks[3].size(), 0);
  without.frames.erase(without.frames.begin() + 3);
  without.masks.erase(without.masks.begin() + 3);
  without.shifts.erase(without.shifts.begin() + 3);
  SrFloatMinimization minimization(24, 18, 5, 2.0f);
  expectSameBits(minimized(minimization, burst).image, minimized(minimization, without).image, "frame 3");
}

TEST(SrFloatMinimization, OffsetAndGainOfTheFramesReappear) {
  const SyntheticBurst burst = noisyBurst(24, 18);
  SyntheticBurst changed = burst;
  for (Image& frame : changed.frames) {
    for (float& value : frame) value = 4.0f * (value - 300.0f) + 7.0f;
  }
  SrFloatMinimization minimization(24, 18, 5, 2.0f);
  const Image image = minimized(minimization, burst).image,
              changedImage = minimized(minimization, changed).image;
  for (std::size_t i = 0; i < image.size(); ++i) {
    EXPECT_NEAR(changedImage[i], 4.0f * (image[i] - 300.0f) + 7.0f, 2e-3f) << i;
  }
}

TEST(SrFloatMinimization, OtherFactorsAndUselessFramesEndInOrder) {
  const SyntheticBurst burst = noisyBurst(13, 9);
  for (const float factor : {1.0f, 1.5f, 3.0f}) {
    SrFloatMinimization minimization(13, 9, 5, factor);
    const Result result = minimized(minimization, burst, factor);
    EXPECT_LE(result.iterations, 8) << factor;
    for (const float value : result.image) EXPECT_TRUE(std::isfinite(value)) << factor;
  }
  SrFloatMinimization minimization(13, 9, 5, 2.0f);
  SyntheticBurst constant = burst, invalid = burst, masked = burst;
  constant.frames[reference].assign(constant.frames[reference].size(), 300.0f);
  invalid.frames[0].assign(invalid.frames[0].size(), std::numeric_limits<float>::quiet_NaN());
  invalid.shifts[2].x = std::numeric_limits<float>::infinity();
  for (Mask& mask : masked.masks) mask.assign(mask.size(), 0);
  for (const SyntheticBurst* useless : {&constant, &invalid, &masked}) {
    EXPECT_LE(minimized(minimization, *useless).iterations, 8);
  }
  EXPECT_TRUE(std::isfinite(minimized(minimization, burst).image[0])) << "nothing of them is left";
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
  EXPECT_THROW(minimize(0, 0), movra::Exception);
  EXPECT_THROW(minimize(-1, 0), movra::Exception);
  EXPECT_THROW(minimize(5, 0), movra::Exception) << "made for four frames";
  EXPECT_THROW(minimize(4, 4), movra::Exception);
  EXPECT_THROW(minimize(4, -1), movra::Exception);
  EXPECT_THROW(minimization.gradient(padded.data(), 5, masks.data(), padded.data()), movra::Exception);
  EXPECT_THROW(minimization.conjugateGradients(5, masks.data(), 1), movra::Exception);
  EXPECT_THROW(minimization.generatePsfs(5, burst.shifts.data()), movra::Exception);
  EXPECT_EQ(burst.frames[0], noisyBurst(6, 5).frames[0]) << "frames are untouched";

  const int huge = std::numeric_limits<int>::max();
  EXPECT_THROW(SrFloatMinimization(-1, 5, 5, 2.0f), std::bad_array_new_length);
  EXPECT_THROW(SrFloatMinimization(6, 5, -1, 2.0f), std::bad_array_new_length);
  EXPECT_THROW(SrFloatMinimization(huge, 5, 5, 2.0f), std::bad_array_new_length);
  EXPECT_THROW(SrFloatMinimization(65536, 65536, 5, 0.01f), std::bad_array_new_length);
}
