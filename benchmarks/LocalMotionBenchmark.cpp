// LocalMotionSuperResolution on five frames by preset, roll and threads, with the share of each stage in per cent.

#include <benchmark/benchmark.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <opencv2/core.hpp>

#include "tests/localmotion/MovingBurst.h"
#include "vision/superresolution/LocalMotionSuperResolution.h"

using namespace movra::vision;

namespace {

movra::test::SyntheticBurst burstFor(int width, int height, double degrees) {
  const cv::Point2d places[] = {{0, 0}, {0.55, -1.3}, {-2.2, 0.4}, {1.4, 2.1}, {-0.75, -0.85}};
  std::vector<movra::test::Motion> back;
  for (int k = 0; k < 5; ++k) {
    const double turn = k == 0 ? 0 : k % 2 == 0 ? -degrees : degrees;
    back.push_back(movra::test::inverseOf(turn * CV_PI / 180, places[k], width, height));
  }
  return movra::test::makeMovingBurst(width, height, back);
}

void runJobs(int threads, int jobs, const std::function<void(int)>& job) {
  std::atomic<int> next{0};
  const auto work = [&] {
    for (int i = next++; i < jobs; i = next++) {
      job(i);
    }
  };
  std::vector<std::thread> others;
  for (int i = 1; i < threads; ++i) {
    others.emplace_back(work);
  }
  work();
  for (std::thread& other : others) {
    other.join();
  }
}

/// Arguments: width, height, preset, roll in hundredths of a degree, threads.
void LocalMotion(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  const movra::test::SyntheticBurst burst = burstFor(width, height, 0.01 * static_cast<double>(state.range(3)));
  LocalMotionOptions options;
  options.reference = 0;
  options.preset = static_cast<LocalMotionPreset>(state.range(2));
  const int threads = static_cast<int>(state.range(4));
  if (threads > 1) {
    options.runJobs = [=](int jobs, const std::function<void(int)>& job) { runJobs(threads, jobs, job); };
  }
  LocalMotionSuperResolution reconstruction(width, height, options);
  for (const movra::test::Image& frame : burst.frames) {
    reconstruction.addFrame(frame.data());
  }
  LocalMotionTimes sum;
  double solved = 0;  // pixels times applications of the system operator
  for (auto _ : state) {
    const LocalMotionResult result = reconstruction.computeSR();
    const LocalMotionTimes& seconds = result.seconds;
    constexpr double around = 2 * 6 + 2.5;  // margins of a tile, and of the solver's grid
    solved = result.tiles * (result.tileCore + around) * (result.tileCore + around) * (result.iterations + 1);
    sum.preparation += seconds.preparation;
    sum.motion += seconds.motion;
    sum.sensor += seconds.sensor;
    sum.masks += seconds.masks;
    sum.solve += seconds.solve;
    sum.total += seconds.total;
  }
  const auto share = [&](double seconds) { return 100 * seconds / sum.total; };
  state.counters["solved"] = solved;
  state.counters["preparation"] = share(sum.preparation);
  state.counters["motion"] = share(sum.motion);
  state.counters["sensor"] = share(sum.sensor);
  state.counters["masks"] = share(sum.masks);
  state.counters["solve"] = share(sum.solve);
}

BENCHMARK(LocalMotion)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->ArgNames({"", "", "preset", "roll", "threads"})
    ->ArgsProduct({{160}, {120}, {1}, {0, 30}, {1}})
    ->ArgsProduct({{320}, {240}, {0, 1, 2}, {0, 30}, {1}})
    ->ArgsProduct({{640}, {480}, {1}, {0, 30}, {1, 2}});

}  // namespace
