// The integer operators: any size, factor, taps and samples.
#include <new>

#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/DSP_Convolution.h"

namespace {

template <class T>
void run(FuzzInput& input) {
  using Operators = movra::vision::DSP_Convolution<T>;
  const int width = input.between(-1, 40);
  const int height = input.between(-1, 40);
  const int taps = input.upTo(3) > 0 ? 6 : input.between(-1, 9);
  const float factor = input.upTo(3) > 0 ? 2.0f : input.number();
  const bool fits = accepts([&] {
    Operators operators(static_cast<T>(width), static_cast<T>(height), static_cast<T>(taps), static_cast<T>(taps),
                        factor);
    // As the header tells; none where the factor is below 1 or not a number.
    const auto lowSize = [factor](int size) {
      return factor >= 1.0f ? static_cast<std::size_t>(static_cast<float>(size) / factor) : 0;
    };
    const std::size_t count = lowSize(width) * lowSize(height);
    std::vector<T> grid =
        input.integers<T>(static_cast<std::size_t>(width + taps) * static_cast<std::size_t>(height + taps));
    std::vector<T> psfX = input.integers<T>(static_cast<std::size_t>(taps + 6));
    std::vector<T> psfY = input.integers<T>(static_cast<std::size_t>(taps + 6));
    std::vector<T> low(count);
    if (input.ConsumeBool()) {
      operators.setFilterScale(input.ConsumeIntegral<T>());
    }
    accepts([&] { operators.validCorrToSparse(grid.data(), psfX.data(), psfY.data(), low.data()); });
    std::vector<char> mask = input.integers<char>(count);
    std::vector<T> spread((2 * lowSize(height) + 5) * (2 * lowSize(width) + 5));
    operators.fullConvFromSparse(low.data(), psfX.data(), psfY.data(), mask.data(), spread.data());
  });
  require(fits || width < 0 || height < 0 || taps < 0, "sizes that fit are accepted");
  const auto samples = static_cast<short>(input.between(-2, 60));
  const auto pitch = static_cast<short>(input.between(0, 20));
  const std::vector<T> src = input.integers<T>(static_cast<std::size_t>(std::max<int>(samples, 0) + 2 + 2 * pitch));
  const std::vector<T> kernel = input.integers<T>(9);
  std::vector<T> dst(static_cast<std::size_t>(std::max<int>(samples, 0)));
  Operators::ImgConv3x3I16sC16s(src.data(), dst.data(), samples, pitch, kernel.data(), input.ConsumeIntegral<T>());
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  if (input.ConsumeBool()) {
    run<int>(input);
  } else {
    run<short>(input);
  }
}
