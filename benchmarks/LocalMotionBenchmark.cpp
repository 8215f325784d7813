// LocalMotionSuperResolution on five frames, one thread, by preset and roll, with the share of each stage in per cent.

#include <benchmark/benchmark.h>

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

/// Arguments: width, height, preset, roll in hundredths of a degree.
void LocalMotion(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  const movra::test::SyntheticBurst burst = burstFor(width, height, 0.01 * static_cast<double>(state.range(3)));
  LocalMotionOptions options;
  options.reference = 0;
  options.preset = static_cast<LocalMotionPreset>(state.range(2));
  LocalMotionSuperResolution reconstruction(width, height, options);
  for (const movra::test::Image& frame : burst.frames) {
    reconstruction.addFrame(frame.data());
  }
  LocalMotionTimes sum;
  for (auto _ : state) {
    const LocalMotionTimes seconds = reconstruction.computeSR().seconds;
    sum.preparation += seconds.preparation;
    sum.motion += seconds.motion;
    sum.sensor += seconds.sensor;
    sum.masks += seconds.masks;
    sum.solve += seconds.solve;
    sum.total += seconds.total;
  }
  const auto share = [&](double seconds) { return 100 * seconds / sum.total; };
  state.counters["preparation"] = share(sum.preparation);
  state.counters["motion"] = share(sum.motion);
  state.counters["sensor"] = share(sum.sensor);
  state.counters["masks"] = share(sum.masks);
  state.counters["solve"] = share(sum.solve);
}

BENCHMARK(LocalMotion)->Unit(benchmark::kMillisecond)->ArgsProduct({{320}, {240}, {0, 1, 2}, {0, 30}});
BENCHMARK(LocalMotion)->Unit(benchmark::kMillisecond)->Args({640, 480, 1, 0})->Args({640, 480, 1, 30});

}  // namespace
