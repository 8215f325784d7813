#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "movra/Exception.h"

namespace movra::test {

inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
inline constexpr float infinity = std::numeric_limits<float>::infinity();

inline float asFloat(std::uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

inline bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

/// 32-bit FNV-1a over the bytes of the numbers (G. Fowler, L. C. Noll, K.-P. Vo).
inline std::uint32_t digest(const std::vector<float>& values) {
  std::uint32_t hash = 2166136261u;
  for (const float value : values) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    for (int byte = 0; byte < 4; ++byte, bits >>= 8) {
      hash = (hash ^ (bits & 0xffu)) * 16777619u;
    }
  }
  return hash;
}

/// The text that the call throws, as `const char*` or, after "exception: ", as movra::Exception; else nothing.
template <class Call>
std::string textThrownBy(Call call) {
  try {
    call();
  } catch (const char* text) {
    return text;
  } catch (const Exception& exception) {
    return std::string("exception: ") + exception.what();
  }
  return "";
}

/// The place that the exception of the call names: its end, of the given length.
template <class Call>
std::string endOfLocationThrownBy(Call call, std::size_t length) {
  try {
    call();
  } catch (const Exception& exception) {
    const std::string& place = exception.location();
    return place.substr(place.size() - std::min(length, place.size()));
  }
  return "";
}

/// Defaults of an engine for at least five frames; what its setters take and what they refuse, with which text.
template <class Engine>
void expectSettersRejectWithTheirTexts(Engine& engine) {
  const auto check = [](auto set, auto get, auto byDefault, std::vector<decltype(byDefault)> accepted,
                        std::vector<decltype(byDefault)> rejected, const std::string& text) {
    EXPECT_EQ(get(), byDefault) << text;
    for (const auto value : accepted) {
      EXPECT_EQ(textThrownBy([&] { set(value); }), "") << value;
      for (const auto bad : rejected) {
        EXPECT_EQ(textThrownBy([&] { set(bad); }), text) << bad;
      }
      EXPECT_TRUE(get() == value || (value != value && get() != get())) << text << value;
    }
  };
  check([&](int i) { engine.setReferenceIndex(i); }, [&] { return engine.getReferenceIndex(); }, 0, {4, 0},
        {-1, 5, std::numeric_limits<int>::min()}, "Invalid reference index specified.");
  check([&](float e) { engine.setRegError(e); }, [&] { return engine.getRegError(); }, 1e-4f,
        {1.0f, 1e-30f, notANumber}, {0.0f, -1.0f, std::nextafter(1.0f, 2.0f), infinity},
        "Invalid maximum registration error specified.");
  check([&](float s) { engine.setPsfSigma(s); }, [&] { return engine.getPsfSigma(); }, 0.683f,
        {0.5f, notANumber, std::numeric_limits<float>::denorm_min(), infinity}, {0.0f, -0.1f, -infinity},
        "Invalid standard deviation of the sensor psf specified.");
  check([&](float w) { engine.setWeightTV(w); }, [&] { return engine.getWeightTV(); }, 400.0f,
        {1.0f, notANumber, infinity}, {std::nextafter(1.0f, 0.0f), 0.0f, -5.0f},
        "Invalid total-variation term weight specified.");
  check([&](float r) { engine.setRelativeResidue(r); }, [&] { return engine.getRelativeResidue(); }, 0.007f,
        {std::nextafter(1e-6f, 1.0f), notANumber, 3.0f}, {1e-6f, 0.0f, -infinity},  // 1e-6f lies below 1e-6
        "Invalid total-variation term weight specified.");
  check([&](int n) { engine.setMaxCGIters(n); }, [&] { return engine.getMaxCGIters(); }, 8, {1, 1000}, {0, -3},
        "Invalid maximum number of iterations specified.");
}

}  // namespace movra::test
