// What the machine gives one thread at best, so that times can be read as shares of it: the bandwidth of its memory
// (the triad of J. D. McCalpin's STREAM), and multiplications and additions that wait for no memory.

#include <benchmark/benchmark.h>

#include <vector>

#include "vision/superresolution/detail/base/InstructionSet.h"

namespace {

using movra::vision::detail::activeInstructionSet;
using movra::vision::detail::InstructionSet;

void triad(benchmark::State& state) {
  constexpr std::size_t size = std::size_t{1} << 24;  // three arrays of 64 MiB, beyond every cache
  std::vector<float> a(size), b(size, 1.0f), c(size, 2.0f);
  for (auto _ : state) {
    for (std::size_t i = 0; i < size; ++i) {
      a[i] = b[i] + 0.5f * c[i];
    }
    benchmark::DoNotOptimize(a.data());
    benchmark::ClobberMemory();
  }
  state.counters["bytes"] = 3.0 * sizeof(float) * size;
}

constexpr int rounds = 100000;
typedef float Vector128 __attribute__((vector_size(16)));
typedef float Vector256 __attribute__((vector_size(32)));
typedef float Vector512 __attribute__((vector_size(64)));

constexpr int chains = 12;  // independent, as many as cover the latency of both operations

// Multiplication and addition stay two operations, as everywhere in this code base.
template <class Vector>
inline __attribute__((always_inline)) void multiplyAddChains() {
  const Vector factor = Vector{} + 0.5f, term = Vector{} + 1.0f;
  Vector sums[chains];
  for (int i = 0; i < chains; ++i) {
    sums[i] = Vector{} + static_cast<float>(i);  // not one chain twelve times
  }
  for (int round = 0; round < rounds; ++round) {
#pragma GCC unroll 12
    for (int i = 0; i < chains; ++i) {
      sums[i] = sums[i] * factor + term;
    }
  }
  for (int i = 1; i < chains; ++i) {
    sums[0] += sums[i];
  }
  benchmark::DoNotOptimize(sums[0][0]);
}

void multiplyAdd128() {
  multiplyAddChains<Vector128>();
}
#if defined(__x86_64__)
__attribute__((target("avx2"))) void multiplyAdd256() {
  multiplyAddChains<Vector256>();
}
__attribute__((target("avx512f"))) void multiplyAdd512() {
  multiplyAddChains<Vector512>();
}
#endif

void multiplyAdd(benchmark::State& state) {
  void (*run)() = multiplyAdd128;
  int lanes = 4;
#if defined(__x86_64__)
  if (activeInstructionSet() == InstructionSet::avx2) {
    run = multiplyAdd256;
    lanes = 8;
  } else if (activeInstructionSet() == InstructionSet::avx512) {
    run = multiplyAdd512;
    lanes = 16;
  }
#endif
  for (auto _ : state) {
    run();
  }
  state.counters["operations"] = 2.0 * lanes * chains * rounds;
}

BENCHMARK(triad)->Unit(benchmark::kMillisecond);
BENCHMARK(multiplyAdd)->Unit(benchmark::kMillisecond);

}  // namespace
