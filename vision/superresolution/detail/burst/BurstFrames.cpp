#include "vision/superresolution/detail/burst/BurstFrames.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "vision/superresolution/SuperResolutionTypes.h"

namespace movra::vision::detail {

namespace {

// Flags are subnormal numbers, which a host may flush: they are looked at and written as integers alone.
bool isFlag(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits == flag::overRange || bits == flag::underRange || bits == flag::invalid ||
         bits == flag::invalidAlternative;
}

void setFlag(float& pixel, std::uint32_t bits) {
  std::memcpy(&pixel, &bits, sizeof bits);
}

}  // namespace

bool isGood(float value, const movra_sr_options& options) {
  return std::isfinite(value) && !isFlag(value) && static_cast<double>(value) >= options.lowest_valid &&
         static_cast<double>(value) <= options.highest_valid;
}

std::vector<float> flagged(const std::vector<float>& frame, const std::vector<unsigned char>& badPixels,
                           const movra_sr_options& options) {
  std::vector<float> result(frame);
  for (std::size_t i = 0; i < result.size(); ++i) {
    float& pixel = result[i];
    if (!badPixels.empty() && badPixels[i] != 0) {
      setFlag(pixel, flag::invalid);
    } else if (!isFlag(pixel) && static_cast<double>(pixel) > options.highest_valid) {
      setFlag(pixel, flag::overRange);
    } else if (!isFlag(pixel) && static_cast<double>(pixel) < options.lowest_valid) {
      setFlag(pixel, flag::underRange);
    }
  }
  return result;
}

}  // namespace movra::vision::detail
