#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>
#include <vector>

#include "vision/superresolution/SrFloatFft2d.h"

// A transform forward and backward beside OpenCV's of the same size, both on one thread and with the spectrum
// in its own layout (half spectrum here, packed there).

using namespace movra::vision;

namespace {

cv::Mat_<float> randomImage(const benchmark::State& state) {
  cv::Mat_<float> image(static_cast<int>(state.range(1)), static_cast<int>(state.range(0)));
  cv::theRNG().state = 1;
  cv::randu(image, 270.0f, 310.0f);
  return image;
}

void fft2d(benchmark::State& state) {
  cv::Mat_<float> image = randomImage(state);
  cv::Mat_<float> back(image.size());
  std::vector<float> floats(image.total() + 2 * static_cast<std::size_t>(image.rows));
  auto* const spectrum = reinterpret_cast<float(*)[2]>(floats.data());
  SrFloatFft2d fft(image.cols, image.rows);
  for (auto _ : state) {
    fft.forward(image[0], spectrum);
    fft.backward(spectrum, back[0]);
    benchmark::ClobberMemory();
  }
}

void openCvDft(benchmark::State& state) {
  cv::setNumThreads(1);
  const cv::Mat_<float> image = randomImage(state);
  cv::Mat_<float> spectrum;
  cv::Mat_<float> back;
  for (auto _ : state) {
    cv::dft(image, spectrum);
    cv::dft(spectrum, back, cv::DFT_INVERSE | cv::DFT_REAL_OUTPUT);
    benchmark::ClobberMemory();
  }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Unit(benchmark::kMicrosecond)->ArgNames({"width", "height"});
  benchmark->Args({80, 60})->Args({160, 120})->Args({320, 240})->Args({382, 288})->Args({640, 480});
}

BENCHMARK(fft2d)->Apply(sizes);
BENCHMARK(openCvDft)->Apply(sizes);

}  // namespace
