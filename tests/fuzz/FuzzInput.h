#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "movra/Exception.h"

// What every target starts from.

namespace movra::fuzz {

/// Ends the run with a finding unless what the interface promises holds.
inline void require(bool holds, const char* promise) {
  if (!holds) {
    std::cerr << "broken promise: " << promise << std::endl;
    std::abort();
  }
}

/// Runs what may be refused as the header tells.
/// @return whether it was accepted
template <class Call>
bool accepts(Call call) {
  try {
    call();
    return true;
  } catch (const Exception&) {
    return false;
  }
}

/// What a target makes of libFuzzer's bytes. When they run out, everything is 0.
class FuzzInput : public FuzzedDataProvider {
 public:
  using FuzzedDataProvider::FuzzedDataProvider;

  bool isUsedUp() { return remaining_bytes() == 0; }
  int upTo(int maximum) { return ConsumeIntegralInRange(0, maximum); }
  int between(int minimum, int maximum) { return ConsumeIntegralInRange(minimum, maximum); }

  /// Any number that a float can be, the awkward ones often.
  float number() {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    static const float awkward[] = {0.0f,     -0.0f,   1.0f,     -1.0f,     0.5f,  1e-4f,  2.0f,
                                    -274.0f,  5000.0f, 32767.0f, -32768.0f, 1e10f, -1e10f, 3.4e38f,
                                    -3.4e38f, 1e-38f,  infinity, -infinity, NAN};
    const int choice = upTo(31);
    if (choice < static_cast<int>(std::size(awkward))) {
      return awkward[choice];
    }
    if (choice < 24) {
      return bits(static_cast<std::uint32_t>(between(128, 134)));  // a flag, or beside one
    }
    if (choice < 28) {
      return static_cast<float>(ConsumeIntegral<std::int16_t>()) / 64.0f;
    }
    return bits(ConsumeIntegral<std::uint32_t>());
  }

  /// A frame of height x width: a scene with corners, moved, then altered at some places.
  std::vector<float> frame(int width, int height) {
    std::vector<float> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const int kind = upTo(7);
    const float level = kind == 7 ? number() : 300.0f;
    const float contrast = kind == 0 ? 0.0f : kind == 6 ? number() : 10.0f;
    const float dx = static_cast<float>(between(-128, 127)) / 16.0f;
    const float dy = static_cast<float>(between(-128, 127)) / 16.0f;
    std::size_t i = 0;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x, ++i) {
        const float u = static_cast<float>(x) - dx;
        const float v = static_cast<float>(y) - dy;
        pixels[i] = level + contrast * (std::sin(0.7f * u) * std::cos(0.9f * v) + std::sin(0.23f * u + 0.31f * v));
      }
    }
    for (int changes = pixels.empty() ? 0 : upTo(kind == 5 ? 40 : 6); changes > 0; --changes) {
      pixels[ConsumeIntegralInRange<std::size_t>(0, pixels.size() - 1)] = number();
    }
    return pixels;
  }

  template <class T>
  std::vector<T> integers(std::size_t count) {
    std::vector<T> values(count);
    for (T& value : values) {
      value = ConsumeIntegral<T>();
    }
    return values;
  }

  std::vector<float> numbers(std::size_t count) {
    std::vector<float> values(count);
    for (float& value : values) {
      value = number();
    }
    return values;
  }

 private:
  static float bits(std::uint32_t pattern) {
    float value;
    std::memcpy(&value, &pattern, sizeof value);
    return value;
  }
};

/// What the target does with one input: the only thing that it defines.
void feed(FuzzInput& input);

}  // namespace movra::fuzz

namespace movra::vision {}
using namespace movra::vision;
using movra::fuzz::accepts;
using movra::fuzz::FuzzInput;
using movra::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzInput input(data, size);
  movra::fuzz::feed(input);
  return 0;
}
