// The stages of a reconstruction and the whole: five frames, factor 2, default parameters, one thread. What is named
// Plain... is the yardstick: the same method as plain loops, compiled for the baseline instruction set.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <opencv2/core.hpp>

#include "tests/plain/PlainMinimization.h"
#include "tests/plain/PlainRegistration.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatNeon.h"

using namespace movra::vision;
using movra::test::BurstRecipe;
using movra::test::Image;
using movra::test::Mask;
using movra::test::PlainMinimization;
using movra::test::PlainRegistration;
using movra::test::Shift;
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

void PlainMinimize(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  PlainMinimization minimization(width, height, frameCount);
  timeMinimize(state, minimization);
  state.counters["applications"] = minimization.applications;
}

// A burst with whole-pixel shifts and room for the moved frames.
struct RegistrationInput {
  explicit RegistrationInput(const benchmark::State& state)
      : burst(burstFor(state, 1)), shifted(frameCount, Image(burst.frames[0].size())) {
    cv::setNumThreads(1);
    for (Image& image : shifted) {
      shiftedFrames.push_back(image.data());
    }
    frames = burst.framePointers();
    masks = burst.maskPointers();
  }

  SyntheticBurst burst;
  std::vector<Image> shifted;
  std::vector<float*> shiftedFrames, frames;
  std::vector<char*> masks;
};

// The window slides: each measurement takes one new frame and registers all.
template <class Registration, class Prepare>
void timeRegistration(benchmark::State& state, Registration& registration, Prepare prepare) {
  RegistrationInput input(state);
  for (float* frame : input.frames) {
    prepare(frame);
  }
  for (auto _ : state) {
    std::rotate(input.frames.begin(), input.frames.begin() + 1, input.frames.end());
    prepare(input.frames.back());
    if (registration.doRegistration(frameCount, reference, input.frames.data(), input.burst.shifts.data(),
                                    input.masks.data(), input.shiftedFrames.data()) < 0) {
      state.SkipWithError("registration failed");
    }
  }
}

void registerWindow(benchmark::State& state) {
  SrFloatRegistration2 registration(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), frameCount);
  timeRegistration(state, registration, [&](float* frame) { registration.prepareFrame(frame); });
}

void PlainRegisterWindow(benchmark::State& state) {
  PlainRegistration registration(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), frameCount);
  timeRegistration(state, registration, [&](float* frame) { registration.prepareFrame(frame); });
}

template <class Intake>
void timeIntake(benchmark::State& state, Intake& intake) {
  RegistrationInput input(state);
  std::size_t next = 0;
  for (auto _ : state) {
    intake.addFrame(input.frames[next++ % frameCount]);
  }
}

void addFrame(benchmark::State& state) {
  SrFloat<SrFloatRegistration2> engine(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), frameCount,
                                       2.0f);
  timeIntake(state, engine);
}

bool isValid(float value) {
  std::uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits != 129 && bits != 130 && bits != 132 && bits != 133 && std::isfinite(value) && value >= -274.0f &&
         value <= 5000.0f;
}

// Intake as plain loops: copies a frame without bad pixels, looks at each pixel for defects, prepares it for registration.
class PlainIntake : public PlainRegistration {
 public:
  PlainIntake(int width_, int height_)
      : PlainRegistration(width_, height_, frameCount), width(width_), height(height_) {}

  void addFrame(const float* data) {
    newest.assign(data, data + width * height);
    float smallest = 5000.0f, largest = -274.0f;
    cv::Mat_<unsigned char> defectMap(height, width, static_cast<unsigned char>(0));
    for (std::size_t i = 0; i < newest.size(); ++i) {
      if (isValid(newest[i])) {
        smallest = std::min(smallest, newest[i]);
        largest = std::max(largest, newest[i]);
      }
    }
    for (std::size_t i = 0; i < newest.size(); ++i) {
      if (!isValid(newest[i])) {
        defectMap.data[i] = 3;
      }
    }
    prepareFrame(newest.data());
    benchmark::DoNotOptimize(smallest);
    benchmark::DoNotOptimize(largest);
    benchmark::DoNotOptimize(defectMap.data);
  }

 private:
  int width;
  int height;
  Image newest;
};

void PlainAddFrame(benchmark::State& state) {
  PlainIntake registration(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  timeIntake(state, registration);
}

// Bytes on the heap.
double heapSize() {
  const auto info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

// The window slides here too: one new frame, one result.
template <class Engine>
void timeEngine(benchmark::State& state) {
  RegistrationInput input(state);
  Image out(input.burst.truth.size());
  const SilentOutput silence;
  const double heapBefore = heapSize();
  Engine engine(input.burst.width, input.burst.height, frameCount, 2.0f);
  engine.setReferenceIndex(3);
  for (const float* frame : input.frames) {
    engine.addFrame(frame);
  }
  std::size_t next = 0;
  for (auto _ : state) {
    engine.addFrame(input.frames[next++ % frameCount]);
    if (engine.computeSR(out.data()) < 0) {
      state.SkipWithError("no reconstruction");
    }
  }
  state.counters["heap"] = heapSize() - heapBefore;
}

void computeSR(benchmark::State& state) {
  timeEngine<SrFloat<SrFloatRegistration2>>(state);
}

void computeSRByPhases(benchmark::State& state) {
  timeEngine<SrFloat<SrFloatRegistration1>>(state);
}

void computeSRInVectors(benchmark::State& state) {
  timeEngine<SrFloatNeon<SrFloatNeonRegistration>>(state);
}

// Registration and minimisation: what else computeSR does counts little.
void PlainComputeSR(benchmark::State& state) {
  RegistrationInput input(state);
  PlainIntake registration(input.burst.width, input.burst.height);
  PlainMinimization minimization(input.burst.width, input.burst.height, frameCount);
  for (float* frame : input.frames) {
    registration.addFrame(frame);
  }
  Image out(input.burst.truth.size());
  for (auto _ : state) {
    std::rotate(input.frames.begin(), input.frames.begin() + 1, input.frames.end());
    registration.addFrame(input.frames.back());
    registration.doRegistration(frameCount, reference, input.frames.data(), input.burst.shifts.data(),
                                input.masks.data(), input.shiftedFrames.data());
    minimization.minimize(frameCount, reference, input.shiftedFrames.data(), input.burst.shifts.data(),
                          input.masks.data(), out.data());
  }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Unit(benchmark::kMillisecond)->ArgNames({"width", "height"});
  benchmark->Args({80, 60})->Args({160, 120})->Args({320, 240})->Args({640, 480})->Args({1024, 768});
}

BENCHMARK(addFrame)->Apply(sizes);
BENCHMARK(PlainAddFrame)->Apply(sizes);
BENCHMARK(registerWindow)->Apply(sizes);
BENCHMARK(PlainRegisterWindow)->Apply(sizes);
BENCHMARK(minimize)->Apply(sizes);
BENCHMARK(PlainMinimize)->Apply(sizes);
BENCHMARK(computeSR)->Apply(sizes);
BENCHMARK(PlainComputeSR)->Apply(sizes);
BENCHMARK(computeSRByPhases)->Apply(sizes);
BENCHMARK(computeSRInVectors)->Apply(sizes);

}  // namespace
