// The transforms: any length and size, forward and back, the Gaussian filter and the repair of borders.
#include <algorithm>

#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/SrFloatFft2d.h"
#include "vision/superresolution/reference/fftpack.h"

namespace {

/// Values that no sum of a few thousand takes out of the range, so that a round trip can be judged.
std::vector<float> moderate(FuzzInput& input, std::size_t count) {
  std::vector<float> values(count);
  for (float& value : values) {
    value = static_cast<float>(input.ConsumeIntegral<std::int16_t>());
  }
  return values;
}

void requireMultiple(const std::vector<float>& back, const std::vector<float>& values, float factor) {
  float largest = 1.0f;
  for (const float value : values) {
    largest = std::max(largest, std::fabs(value));
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    require(std::fabs(back[i] / factor - values[i]) <= 1e-4f * largest, "forward and back is a multiple");
  }
}

void runLine(FuzzInput& input) {
  const int n = input.between(-1, 600);
  const auto length = static_cast<std::size_t>(std::max(n, 0));
  std::vector<float> table(4 * length + 1);
  int factors[15];
  const bool fits = accepts([&] {
    fftpack::rffti(n, table.data(), factors);
    const std::vector<float> values = moderate(input, length);
    std::vector<float> line = values;
    fftpack::rfftf(n, line.data(), table.data(), factors);
    fftpack::rfftb(n, line.data(), table.data(), factors);
    requireMultiple(line, values, static_cast<float>(n));

    fftpack::cffti(n, table.data(), factors);
    const std::vector<float> pairs = moderate(input, 2 * length);
    line = pairs;
    fftpack::cfftf(n, line.data(), table.data(), factors);
    fftpack::cfftb(n, line.data(), table.data(), factors);
    requireMultiple(line, pairs, static_cast<float>(n));
  });
  require(fits == (n >= 1), "every short length has a transform");
}

void runImage(FuzzInput& input) {
  const int width = input.between(-1, 70);
  const int height = input.between(-1, 70);
  const bool isPossible = accepts([&] {
    SrFloatFft2d transform(width, height);
    const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    const auto bins = static_cast<std::size_t>(width / 2 + 1) * static_cast<std::size_t>(height);
    const bool isAny = input.ConsumeBool();
    std::vector<float> image = isAny ? input.frame(width, height) : moderate(input, pixels);
    std::vector<float> spectrum(2 * bins);
    std::vector<float> back(pixels);
    transform.forward(image.data(), reinterpret_cast<float(*)[2]>(spectrum.data()));
    transform.backward(reinterpret_cast<float(*)[2]>(spectrum.data()), back.data());
    if (!isAny) {
      requireMultiple(back, image, static_cast<float>(pixels));
    }
    const int radius = input.between(-1, 40);
    std::vector<float> kernel(static_cast<std::size_t>(radius + 2));
    const bool fits = radius >= 0 && 2 * radius < std::min(width, height);
    const bool isAccepted = accepts([&] {
      transform.gaussFft(radius, input.number(), reinterpret_cast<float(*)[2]>(spectrum.data()), kernel.data());
      transform.repairGaussBlur(image.data(), back.data(), radius, kernel.data());
    });
    require(isAccepted == fits, "exactly the radii that fit are accepted");
  });
  require(isPossible == (width >= 1 && height >= 1), "every small image has a transform");
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  if (input.ConsumeBool()) {
    runLine(input);
  } else {
    runImage(input);
  }
}
