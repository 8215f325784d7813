#include "vision/superresolution/reference/fftpack.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "movra/Exception.h"
#include "vision/superresolution/detail/InstructionSet.h"

using namespace movra::vision;

namespace {

/// Every kind of factor, alone and together: all small lengths, sensor sizes, large primes.
std::vector<int> lengths() {
  std::vector<int> all(70);
  for (int n = 1; n <= 70; ++n) all[static_cast<std::size_t>(n - 1)] = n;
  for (const int n : {77, 80, 120, 121, 160, 191, 240, 288, 320, 382, 480, 512, 640, 1009}) all.push_back(n);
  return all;
}

struct RealTables {
  explicit RealTables(int n) : wsave(2 * static_cast<std::size_t>(n)) {
    fftpack::rffti(n, wsave.data(), ifac);
  }
  std::vector<float> wsave;
  int ifac[15];
};

struct ComplexTables {
  explicit ComplexTables(int n) : wsave(4 * static_cast<std::size_t>(n)) {
    fftpack::cffti(n, wsave.data(), ifac);
  }
  std::vector<float> wsave;
  int ifac[15];
};

std::vector<float> randomValues(int count) {
  std::mt19937 generator(static_cast<unsigned>(count));
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  std::vector<float> values(static_cast<std::size_t>(count));
  for (float& value : values) value = uniform(generator);
  return values;
}

using Spectrum = std::vector<std::complex<double>>;

/// The definition in double precision; sign -1 is forward.
Spectrum transform(const Spectrum& x, double sign) {
  const std::size_t n = x.size();
  Spectrum roots(n);
  for (std::size_t t = 0; t < n; ++t) {
    roots[t] = std::polar(1.0, sign * 2.0 * CV_PI * static_cast<double>(t) / static_cast<double>(n));
  }
  Spectrum result(n);
  for (std::size_t k = 0; k < n; ++k) {
    for (std::size_t t = 0; t < n; ++t) result[k] += x[t] * roots[k * t % n];
  }
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
  double error = 0.0;
  double norm = 0.0;
  for (std::size_t k = 0; k < expected.size(); ++k) {
    error += std::norm(result[k] - expected[k]);
    norm += std::norm(expected[k]);
  }
  return std::sqrt(error / norm);
}

}  // namespace

TEST(Fftpack, AgreesWithTheDoublePrecisionTransformForEveryKindOfLength) {
  for (const int n : lengths()) {
    SCOPED_TRACE(n);
    const double bound = 6e-8 * (1.0 + std::log2(n));

    RealTables real(n);
    const std::vector<float> values = randomValues(n);
    std::vector<float> r = values;
    fftpack::rfftf(n, r.data(), real.wsave.data(), real.ifac);
    EXPECT_LT(relativeError(fromPacked(r), transform(fromReal(values), -1.0)), bound);
    cv::Mat_<float> packed;
    cv::dft(cv::Mat_<float>(values, true).reshape(1, 1), packed);
    EXPECT_LT(cv::norm(cv::Mat_<float>(r, true).reshape(1, 1), packed, cv::NORM_RELATIVE | cv::NORM_L2),
              1e-6);
    r = values;
    fftpack::rfftb(n, r.data(), real.wsave.data(), real.ifac);
    EXPECT_LT(relativeError(fromReal(r), transform(fromPacked(values), 1.0)), bound);

    ComplexTables complex(n);
    const std::vector<float> pairs = randomValues(2 * n);
    std::vector<float> c = pairs;
    fftpack::cfftf(n, c.data(), complex.wsave.data(), complex.ifac);
    EXPECT_LT(relativeError(fromInterleaved(c), transform(fromInterleaved(pairs), -1.0)), bound);
    c = pairs;
    fftpack::cfftb(n, c.data(), complex.wsave.data(), complex.ifac);
    EXPECT_LT(relativeError(fromInterleaved(c), transform(fromInterleaved(pairs), 1.0)), bound);
  }
}

TEST(Fftpack, BatchesAndSingleTransformsGiveTheSameBitsOnEveryInstructionSet) {
  using Single = void (*)(int, float*, float*, int*);
  using Batch = float* (*)(int, float*, float*, const float*, const int*);
  constexpr auto lanes = static_cast<std::size_t>(fftpack::batchWidth);
  const detail::InstructionSet active = detail::activeInstructionSet();

  const auto check = [&](int n, std::size_t floats, float* wsave, int* ifac, Single single, Batch batch) {
    const std::vector<float> values = randomValues(static_cast<int>(floats * lanes));
    std::vector<float> expected;
    for (const detail::InstructionSet set : detail::availableInstructionSets()) {
      SCOPED_TRACE(std::to_string(n) + " " + detail::name(set));
      detail::selectInstructionSet(set);
      std::vector<float> singles(values.size());
      for (std::size_t lane = 0; lane < lanes; ++lane) {
        std::vector<float> sequence(floats);
        for (std::size_t v = 0; v < floats; ++v) sequence[v] = values[v * lanes + lane];
        single(n, sequence.data(), wsave, ifac);
        for (std::size_t v = 0; v < floats; ++v) singles[v * lanes + lane] = sequence[v];
      }
      if (expected.empty()) expected = singles;
      EXPECT_EQ(std::memcmp(singles.data(), expected.data(), expected.size() * sizeof(float)), 0);

      std::vector<float> data = values;
      std::vector<float> scratch(data.size());
      const float* result = batch(n, data.data(), scratch.data(), wsave, ifac);
      EXPECT_EQ(std::memcmp(result, expected.data(), expected.size() * sizeof(float)), 0);
    }
  };
  for (const int n : lengths()) {
    const auto size = static_cast<std::size_t>(n);
    RealTables real(n);
    check(n, size, real.wsave.data(), real.ifac, fftpack::rfftf, fftpack::rfftfBatch);
    check(n, size, real.wsave.data(), real.ifac, fftpack::rfftb, fftpack::rfftbBatch);
    ComplexTables complex(n);
    check(n, 2 * size, complex.wsave.data(), complex.ifac, fftpack::cfftf, fftpack::cfftfBatch);
    check(n, 2 * size, complex.wsave.data(), complex.ifac, fftpack::cfftb, fftpack::cfftbBatch);
  }
  detail::selectInstructionSet(active);
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
