#include "vision/superresolution/reference/fftpack.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numeric>

#include "tests/support/Checks.h"
#include "tests/support/InstructionSetGuard.h"
#include "tests/support/SyntheticBurst.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

/// Every kind of factor, alone and together: all small lengths, sensor sizes, large primes.
std::vector<int> lengths() {
  std::vector<int> all(70);
  std::iota(all.begin(), all.end(), 1);
  for (const int n : {77, 80, 120, 121, 160, 191, 240, 288, 320, 382, 480, 512, 640, 1009}) all.push_back(n);
  return all;
}

struct Tables {
  Tables(int n, void (*initialise)(int, float*, int*)) : wsave(4 * static_cast<std::size_t>(n)) {
    initialise(n, wsave.data(), ifac);
  }
  std::vector<float> wsave;
  int ifac[15];
};

using Spectrum = std::vector<std::complex<double>>;

/// In double precision; sign -1 is forward.
Spectrum transform(const Spectrum& x, int sign) {
  Spectrum result;
  cv::dft(x, result, sign < 0 ? 0 : cv::DFT_INVERSE);
  return result;
}

Spectrum fromInterleaved(const std::vector<float>& values) {
  Spectrum result;
  for (std::size_t k = 0; k + 1 < values.size(); k += 2) result.emplace_back(values[k], values[k + 1]);
  return result;
}

Spectrum fromReal(const std::vector<float>& values) {
  return Spectrum(values.begin(), values.end());
}

/// The whole spectrum that the packed order stands for.
Spectrum fromPacked(const std::vector<float>& packed) {
  const std::size_t n = packed.size();
  Spectrum result(n);
  result[0] = packed[0];
  for (std::size_t k = 1; 2 * k <= n; ++k) {
    result[k] = {packed[2 * k - 1], 2 * k < n ? packed[2 * k] : 0.0f};
    result[n - k] = std::conj(result[k]);
  }
  return result;
}

double relativeError(const Spectrum& result, const Spectrum& expected) {
  return cv::norm(result, expected, cv::NORM_RELATIVE | cv::NORM_L2);
}

}  // namespace

TEST(Fftpack, AgreesWithTheDoublePrecisionTransformForEveryKindOfLength) {
  for (const int n : lengths()) {
    SCOPED_TRACE(n);
    Tables real(n, fftpack::rffti), complex(n, fftpack::cffti);
    const std::vector<float> values = randomImage(n, -1, 1, 1), pairs = randomImage(2 * n, -1, 1, 2);
    const auto transformed = [n](auto fft, Tables& tables, std::vector<float> data) {
      fft(n, data.data(), tables.wsave.data(), tables.ifac);
      return data;
    };
    const std::pair<Spectrum, Spectrum> results[] = {
        {fromPacked(transformed(fftpack::rfftf, real, values)), transform(fromReal(values), -1)},
        {fromReal(transformed(fftpack::rfftb, real, values)), transform(fromPacked(values), 1)},
        {fromInterleaved(transformed(fftpack::cfftf, complex, pairs)), transform(fromInterleaved(pairs), -1)},
        {fromInterleaved(transformed(fftpack::cfftb, complex, pairs)), transform(fromInterleaved(pairs), 1)}};
    for (const auto& [result, expected] : results)
      EXPECT_LT(relativeError(result, expected), 6e-8 * (1.0 + std::log2(n)));
  }
}

TEST(Fftpack, BatchesAndSingleTransformsGiveTheSameBitsOnEveryInstructionSet) {
  using Single = void (*)(int, float*, float*, int*);
  using Batch = float* (*)(int, float*, float*, const float*, const int*);
  constexpr auto lanes = static_cast<std::size_t>(fftpack::batchWidth);
  const auto check = [&](int n, std::size_t floats, Tables tables, Single single, Batch batch) {
    SCOPED_TRACE(n);
    float* const wsave = tables.wsave.data();
    const std::vector<float> values = randomImage(static_cast<int>(floats * lanes), -1, 1, 3);
    std::vector<float> expected;
    onEveryInstructionSet([&] {
      std::vector<float> singles(values.size());
      for (std::size_t lane = 0; lane < lanes; ++lane) {
        std::vector<float> sequence(floats);
        for (std::size_t v = 0; v < floats; ++v) sequence[v] = values[v * lanes + lane];
        single(n, sequence.data(), wsave, tables.ifac);
        for (std::size_t v = 0; v < floats; ++v) singles[v * lanes + lane] = sequence[v];
      }
      if (expected.empty()) expected = singles;
      EXPECT_TRUE(sameBits(singles, expected));

      std::vector<float> data = values, scratch(data.size());
      const float* result = batch(n, data.data(), scratch.data(), wsave, tables.ifac);
      EXPECT_TRUE(sameBits({result, result + expected.size()}, expected));
    });
  };
  for (const int n : lengths()) {
    const auto size = static_cast<std::size_t>(n);
    const Tables real(n, fftpack::rffti), complex(n, fftpack::cffti);
    check(n, size, real, fftpack::rfftf, fftpack::rfftfBatch);
    check(n, size, real, fftpack::rfftb, fftpack::rfftbBatch);
    check(n, 2 * size, complex, fftpack::cfftf, fftpack::cfftfBatch);
    check(n, 2 * size, complex, fftpack::cfftb, fftpack::cfftbBatch);
  }
}

TEST(Fftpack, RefusesLengthsThatItCannotHold) {
  float wsave[1] = {};
  int ifac[16];
  ifac[15] = 123;
  for (const int n : {0, -4, 3188646 /* 2 * 3^13 */, 4782969 /* 3^14 */, 1 << 28, 1 << 30}) {
    EXPECT_THROW(fftpack::rffti(n, wsave, ifac), movra::Exception) << n;
    EXPECT_THROW(fftpack::cffti(n, wsave, ifac), movra::Exception) << n;
  }
  EXPECT_EQ(ifac[15], 123);
}
