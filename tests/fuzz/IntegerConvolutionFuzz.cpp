// The integer operators: any size, factor, taps and samples.
#include <new>

#include "movra/Exception.h"
#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/DSP_Convolution.h"

using movra::fuzz::FuzzInput;
using movra::fuzz::require;

namespace {

template <class T>
void run(FuzzInput& input) {
  using Operators = movra::vision::DSP_Convolution<T>;
  const int width = input.between(-1, 40);
  const int height = input.between(-1, 40);
  const int taps = input.upTo(3) > 0 ? 6 : input.between(-1, 9);
  const float factor = input.upTo(3) > 0 ? 2.0f : input.number();
  try {
    Operators operators(static_cast<T>(width), static_cast<T>(height), static_cast<T>(taps), static_cast<T>(taps),
                        factor);
    const auto lowPixels = [&] {  // as the header tells; none where the factor is below 1 or not a number
      if (!(factor >= 1.0f)) {
        return 0;
      }
      return static_cast<int>(static_cast<float>(width) / factor) *
             static_cast<int>(static_cast<float>(height) / factor);
    }();
    const auto count = static_cast<std::size_t>(lowPixels);
    std::vector<T> grid =
        input.integers<T>(static_cast<std::size_t>(width + taps) * static_cast<std::size_t>(height + taps));
    std::vector<T> psfX = input.integers<T>(static_cast<std::size_t>(taps + 6));
    std::vector<T> psfY = input.integers<T>(static_cast<std::size_t>(taps + 6));
    std::vector<T> low(count);
    if (input.ConsumeBool()) {
      operators.setFilterScale(input.ConsumeIntegral<T>());
    }
    try {
      operators.validCorrToSparse(grid.data(), psfX.data(), psfY.data(), low.data());
    } catch (const movra::Exception&) {
    }
    std::vector<char> mask = input.integers<char>(count);
    const auto lowWidth = factor >= 1.0f ? static_cast<std::size_t>(static_cast<float>(width) / factor) : 0;
    const auto lowHeight = factor >= 1.0f ? static_cast<std::size_t>(static_cast<float>(height) / factor) : 0;
    std::vector<T> spread((2 * lowHeight + 5) * (2 * lowWidth + 5));
    operators.fullConvFromSparse(low.data(), psfX.data(), psfY.data(), mask.data(), spread.data());
  } catch (const movra::Exception&) {
    require(width < 0 || height < 0 || taps < 0, "sizes that fit are accepted");
  }
  const auto samples = static_cast<short>(input.between(-2, 60));
  const auto pitch = static_cast<short>(input.between(0, 20));
  const std::vector<T> src = input.integers<T>(static_cast<std::size_t>(std::max<int>(samples, 0) + 2 + 2 * pitch));
  const std::vector<T> kernel = input.integers<T>(9);
  std::vector<T> dst(static_cast<std::size_t>(std::max<int>(samples, 0)));
  Operators::ImgConv3x3I16sC16s(src.data(), dst.data(), samples, pitch, kernel.data(), input.ConsumeIntegral<T>());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  if (input.ConsumeBool()) {
    run<int>(input);
  } else {
    run<short>(input);
  }
  return 0;
}
