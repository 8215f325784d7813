// The stages of a reconstruction and the whole: five frames, factor 2, default parameters, one thread. `StraightMinimize`
// is the yardstick of `minimize`: the same method as straight loops, compiled for the baseline instruction set.

#include <benchmark/benchmark.h>

#include <iostream>
#include <opencv2/core.hpp>

#include "tests/support/StraightMinimization.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/SrFloat.h"

using namespace movra::vision;
using movra::test::BurstRecipe;
using movra::test::Image;
using movra::test::Mask;
using movra::test::Shift;
using movra::test::StraightMinimization;
using movra::test::SyntheticBurst;

namespace {

constexpr int frameCount = 5;
constexpr int reference = 1;  // what reference index 3 means in a full window of five

SyntheticBurst burstFor(const benchmark::State& state, float wholePixels) {
  BurstRecipe recipe;
  recipe.width = static_cast<int>(state.range(0));
  recipe.height = static_cast<int>(state.range(1));
  recipe.noise = 0.02;
  const float directions[frameCount] = {1, 0, -1, 2, -2};
  for (std::size_t k = 0; k < frameCount; ++k) {
    recipe.shifts[k].x += wholePixels * directions[k];
    recipe.shifts[k].y -= wholePixels * directions[k];
  }
  return movra::test::makeBurst(recipe);
}

/// The engine's report goes nowhere while this lives.
class SilentOutput {
 public:
  SilentOutput() = default;
  SilentOutput(const SilentOutput&) = delete;
  SilentOutput& operator=(const SilentOutput&) = delete;
  ~SilentOutput() { std::cout.rdbuf(before); }

 private:
  std::streambuf* before = std::cout.rdbuf(nullptr);
};

template <class Minimization>
void timeMinimize(benchmark::State& state, Minimization& minimization) {
  const SyntheticBurst burst = burstFor(state, 0);
  SyntheticBurst work = burst;
  auto frames = work.framePointers();
  auto masks = work.maskPointers();
  Image out(work.truth.size());
  for (auto _ : state) {
    state.PauseTiming();  // the call changes its frames
    for (std::size_t k = 0; k < frameCount; ++k) {
      std::copy(burst.frames[k].begin(), burst.frames[k].end(), work.frames[k].begin());
    }
    state.ResumeTiming();
    minimization.minimize(frameCount, reference, frames.data(), work.shifts.data(), masks.data(), out.data());
    benchmark::ClobberMemory();
  }
}

void minimize(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  SrFloatMinimization minimization(width, height, frameCount, 2.0f);
  timeMinimize(state, minimization);
}

void StraightMinimize(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  StraightMinimization minimization(width, height, frameCount);
  timeMinimize(state, minimization);
  state.counters["applications"] = minimization.applications;
}

void doRegistration(benchmark::State& state) {
  cv::setNumThreads(1);
  SyntheticBurst burst = burstFor(state, 1);
  std::vector<Image> shifted(frameCount, Image(burst.frames[0].size()));
  std::vector<float*> shiftedFrames;
  for (Image& image : shifted) {
    shiftedFrames.push_back(image.data());
  }
  SrFloatRegistration2 registration(burst.width, burst.height, frameCount);
  auto frames = burst.framePointers();
  auto masks = burst.maskPointers();
  for (float* frame : frames) {
    registration.prepareFrame(frame);
  }
  for (auto _ : state) {
    if (registration.doRegistration(frameCount, reference, frames.data(), burst.shifts.data(), masks.data(),
                                    shiftedFrames.data()) < 0) {
      state.SkipWithError("registration failed");
    }
  }
}

void addFrame(benchmark::State& state) {
  cv::setNumThreads(1);
  const SyntheticBurst burst = burstFor(state, 1);
  SrFloat<SrFloatRegistration2> engine(burst.width, burst.height, frameCount, 2.0f);
  std::size_t next = 0;
  for (auto _ : state) {
    engine.addFrame(burst.frames[next++ % frameCount].data());
  }
}

void computeSR(benchmark::State& state) {
  cv::setNumThreads(1);
  const SyntheticBurst burst = burstFor(state, 1);
  SrFloat<SrFloatRegistration2> engine(burst.width, burst.height, frameCount, 2.0f);
  engine.setReferenceIndex(3);
  for (const Image& frame : burst.frames) {
    engine.addFrame(frame.data());
  }
  Image out(burst.truth.size());
  const SilentOutput silence;
  for (auto _ : state) {
    if (engine.computeSR(out.data()) < 0) {
      state.SkipWithError("no reconstruction");
    }
  }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Unit(benchmark::kMillisecond)->ArgNames({"width", "height"});
  benchmark->Args({80, 60})->Args({160, 120})->Args({320, 240})->Args({640, 480})->Args({1024, 768});
}

BENCHMARK(addFrame)->Apply(sizes);
BENCHMARK(doRegistration)->Apply(sizes);
BENCHMARK(minimize)->Apply(sizes);
BENCHMARK(StraightMinimize)->Apply(sizes);
BENCHMARK(computeSR)->Apply(sizes);

}  // namespace
