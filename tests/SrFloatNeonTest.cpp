#include "vision/superresolution/SrFloatNeon.h"

#include <gtest/gtest.h>

#include <iostream>
#include <limits>
#include <sstream>
#include <vector>

#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/SrFloat.h"

using movra::test::BurstRecipe;
using movra::test::Image;
using movra::test::makeBurst;
using movra::test::randomImage;
using movra::test::Shift;
using movra::test::SyntheticBurst;
using movra::vision::SrFloat;
using movra::vision::SrFloatConvolution;
using movra::vision::SrFloatNeon;
using movra::vision::SrFloatNeonConvolution;
using movra::vision::SrFloatNeonMinimization;
using movra::vision::SrFloatNeonRegistration;
using movra::vision::SrFloatRegistration2;

namespace {

using Engine = SrFloatNeon<SrFloatNeonRegistration>;

/// What a caller gets of one reconstruction.
struct Outcome {
  float srFactor = 0;
  Image image;
  std::vector<Shift> shifts;
  std::string written;  // to standard output
};

template <class AnyEngine>
Outcome reconstruct(AnyEngine& engine) {
  Outcome outcome;
  outcome.image.resize(static_cast<std::size_t>(engine.getOutputSize()));
  std::ostringstream written;
  std::streambuf* const console = std::cout.rdbuf(written.rdbuf());
  outcome.srFactor = engine.computeSR(outcome.image.data());
  std::cout.rdbuf(console);
  outcome.written = written.str();
  engine.getCompleteShifts(outcome.shifts);
  return outcome;
}

/// Registration and minimisation of a whole burst without an engine.
Outcome reconstructByParts(SyntheticBurst burst, int refIndex) {
  const auto count = static_cast<int>(burst.frames.size());
  SrFloatNeonRegistration registration(burst.width, burst.height, count);
  SrFloatNeonMinimization minimization(burst.width, burst.height, count, 2.0f);
  SyntheticBurst shifted = burst;
  std::vector<Image> masks = burst.frames;
  std::vector<float*> maskPointers;
  for (Image& mask : masks) maskPointers.push_back(mask.data());
  for (float* frame : burst.framePointers()) registration.prepareFrame(frame);
  std::vector<Shift> shifts(burst.frames.size());
  EXPECT_EQ(registration.doRegistration(count, refIndex, burst.framePointers().data(), shifts.data(),
                                        maskPointers.data(), shifted.framePointers().data()),
            0);
  Outcome outcome;
  outcome.image.resize(burst.truth.size());
  minimization.minimize(count, refIndex, shifted.framePointers().data(), shifts.data(), maskPointers.data(),
                        outcome.image.data());
  return outcome;
}

}  // namespace

TEST(SrFloatNeonConvolution, EqualsTheProductionOperatorsForEveryFactor) {
  for (const float factor : {1.0f, 2.0f, 2.5f, 3.0f}) {
    for (const int hrWidth : {2, 15, 24, 46}) {
      for (const int psf : {1, 6}) {
        const int hrHeight = 14;
        const auto lowWidth = static_cast<int>(static_cast<float>(hrWidth) / factor);
        const auto lowHeight = static_cast<int>(static_cast<float>(hrHeight) / factor);
        Image image = randomImage(lowWidth * lowHeight, -2, 2, 1);
        Image hr = randomImage((hrWidth + psf - 1) * (hrHeight + psf - 1), -2, 2, 2);
        Image kernel = randomImage(psf, -1, 1, 3);
        std::vector<char> bytes(image.size());
        Image mask(image.size());
        for (std::size_t i = 0; i < mask.size(); ++i) {
          bytes[i] = i % 3 != 0 ? 1 : 0;
          mask[i] = static_cast<float>(bytes[i]);
        }
        SrFloatNeonConvolution vectors(hrWidth, hrHeight, psf, psf, factor);
        SrFloatConvolution production(hrWidth, hrHeight, psf, psf, factor);
        const auto size = [&] {
          return ::testing::Message() << hrWidth << " psf " << psf << " factor " << factor;
        };

        Image actual(hr.size(), 1e30f), expected(hr.size(), 1e30f);
        vectors.fullConvFromSparse(image.data(), kernel.data(), kernel.data(), mask.data(), actual.data());
        production.fullConvFromSparse(image.data(), kernel.data(), kernel.data(), bytes.data(),
                                      expected.data());
        EXPECT_EQ(actual, expected) << size();

        // A fraction weights its sample before anything else happens to it.
        Image weighted = image;
        for (std::size_t i = 0; i < mask.size(); ++i) {
          mask[i] = 0.3f * static_cast<float>(i % 5);
          weighted[i] *= mask[i];
        }
        std::fill(bytes.begin(), bytes.end(), static_cast<char>(1));
        vectors.fullConvFromSparse(image.data(), kernel.data(), kernel.data(), mask.data(), actual.data());
        production.fullConvFromSparse(weighted.data(), kernel.data(), kernel.data(), bytes.data(),
                                      expected.data());
        EXPECT_EQ(actual, expected) << size();

        actual = expected = Image(image.size(), 1e30f);
        vectors.validCorrToSparse(hr.data(), kernel.data(), kernel.data(), actual.data());
        production.validCorrToSparse(hr.data(), kernel.data(), kernel.data(), expected.data());
        EXPECT_EQ(actual, expected) << size();
      }
    }
  }
}

TEST(SrFloatNeon, EqualsTheProductionEngineOnFramesWithoutBadPixelsAndWritesNothing) {
  for (const cv::Size size : {cv::Size(48, 40), cv::Size(61, 43)}) {
    BurstRecipe recipe;
    recipe.width = size.width;
    recipe.height = size.height;
    recipe.noise = 0.03;
    recipe.shifts.insert(recipe.shifts.end(), {{1.2f, -2.3f}, {0.6f, 0.8f}});
    const SyntheticBurst burst = makeBurst(recipe);
    Engine vectors(size.width, size.height, 5, 2.0f);
    SrFloat<SrFloatRegistration2> production(size.width, size.height, 5, 2.0f);
    vectors.setReferenceIndex(2);
    production.setReferenceIndex(2);
    for (std::size_t i = 0; i < burst.frames.size(); ++i) {
      vectors.addFrame(burst.frames[i].data());
      production.addFrame(burst.frames[i].data());
      if (i < 3) continue;  // four frames, five, and a window that has moved on
      const Outcome actual = reconstruct(vectors);
      const Outcome expected = reconstruct(production);
      EXPECT_EQ(actual.srFactor, expected.srFactor) << i;
      EXPECT_GT(actual.srFactor, 0.75f) << i;
      EXPECT_EQ(actual.shifts, expected.shifts) << i;
      EXPECT_EQ(actual.image, expected.image) << i;
      EXPECT_EQ(actual.written, "");
    }
  }
}

TEST(SrFloatNeon, FlaggedPixelsPassUnrepaired) {
  SyntheticBurst burst = makeBurst({});
  for (Image& frame : burst.frames)
    frame[20 * 48 + 30] = 1e4f;  // beyond the valid range, which SrFloat repairs
  Engine engine(burst.width, burst.height, 5, 2.0f);
  for (const Image& frame : burst.frames) EXPECT_EQ(engine.addFrame(frame.data()), 0);
  const Outcome outcome = reconstruct(engine);
  EXPECT_EQ(outcome.image, reconstructByParts(burst, 4).image);
  EXPECT_GT(*std::max_element(outcome.image.begin(), outcome.image.end()), 1000.0f);

  // Nothing of an infinite frame stays once it has left the window.
  engine.addFrame(Image(burst.frames[0].size(), std::numeric_limits<float>::infinity()).data());
  for (const Image& frame : burst.frames) engine.addFrame(frame.data());
  EXPECT_EQ(reconstruct(engine).image, outcome.image);
}

TEST(SrFloatNeon, FullMasksGiveTheLargestSrFactorAndGetMasksCopiesTheirFirstQuarter) {
  BurstRecipe recipe;
  recipe.shifts.assign(5, {0.0f, 0.0f});
  const SyntheticBurst burst = makeBurst(recipe);
  Engine engine(burst.width, burst.height, 5, 2.0f);
  for (const Image& frame : burst.frames) engine.addFrame(frame.data());
  EXPECT_EQ(reconstruct(engine).srFactor, 2.0f);

  std::vector<cv::Mat_<float>> masks;
  for (int i = 0; i < 5; ++i) masks.emplace_back(burst.height, burst.width, 7.0f);
  masks.emplace_back(3, 3, 7.0f);
  engine.getMasks(masks);
  ASSERT_EQ(masks.size(), 5u);
  Image expected(burst.frames[0].size(), 7.0f);
  std::fill_n(expected.begin(), expected.size() / 4, 1.0f);
  for (const cv::Mat_<float>& mask : masks) EXPECT_EQ(Image(mask.begin(), mask.end()), expected);
}
