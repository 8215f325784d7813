#include "vision/superresolution/reference/fftpack.h"

#include "tests/support/Test.h"
#include "tests/support/TransformLengths.h"
#include "vision/superresolution/detail/fft/MixedRadix.h"

using namespace movra::test;
using namespace movra::vision;

namespace {

struct Tables {
  Tables(int n, void (*initialise)(int, float*, int*)) : wsave(4 * static_cast<std::size_t>(n)) {
    initialise(n, wsave.data(), ifac);
  }
  std::vector<float> wsave;
  int ifac[15];
};

}  // namespace

TEST(Fftpack, BatchesAndSingleTransformsGiveTheSameBitsOnEveryInstructionSet) {
  using Single = void (*)(int, float*, float*, int*);
  using Batch = float* (*)(int, float*, float*, const float*, const int*);
  constexpr auto lanes = static_cast<std::size_t>(detail::fftBatchWidth);
  const auto check = [&](int n, std::size_t floats, Tables tables, Single single, Batch batch) {
    SCOPED_TRACE(n);
    float* const wsave = tables.wsave.data();
    const std::vector<float> values = randomImage(static_cast<int>(floats * lanes), -1, 1, 3);
    std::vector<float> expected;
    onEveryInstructionSet([&] {
      std::vector<float> singles(values.size());
      for (std::size_t lane = 0; lane < lanes; ++lane) {
        std::vector<float> sequence(floats);
        for (std::size_t v = 0; v < floats; ++v) {
          sequence[v] = values[v * lanes + lane];
        }
        single(n, sequence.data(), wsave, tables.ifac);
        for (std::size_t v = 0; v < floats; ++v) {
          singles[v * lanes + lane] = sequence[v];
        }
      }
      if (expected.empty()) {
        expected = singles;
      }
      EXPECT_TRUE(sameBits(singles, expected));

      std::vector<float> data = values, scratch(data.size());
      const float* result = batch(n, data.data(), scratch.data(), wsave, tables.ifac);
      EXPECT_TRUE(sameBits({result, result + expected.size()}, expected));
    });
  };
  for (const int n : transformLengths()) {
    const auto size = static_cast<std::size_t>(n);
    const Tables real(n, fftpack::rffti), complex(n, fftpack::cffti);
    check(n, size, real, fftpack::rfftf, detail::realForwardBatch);
    check(n, size, real, fftpack::rfftb, detail::realBackwardBatch);
    check(n, 2 * size, complex, fftpack::cfftf, detail::complexForwardBatch);
    check(n, 2 * size, complex, fftpack::cfftb, detail::complexBackwardBatch);
  }
}

TEST(Fftpack, RefusesLengthsThatItCannotHold) {
  float wsave[1] = {};
  int ifac[15];
  for (const int n : {0, -4, 3188646 /* 2 * 3^13: more factors than there is room for */}) {
    EXPECT_THROW(fftpack::rffti(n, wsave, ifac), movra::Exception) << n;
  }
}
