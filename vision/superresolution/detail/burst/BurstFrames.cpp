#include "vision/superresolution/detail/burst/BurstFrames.h"

#include <cmath>

#include "vision/superresolution/SuperResolutionTypes.h"
#include "vision/superresolution/detail/badpixels/ValueKey.h"

namespace movra::vision::detail {

bool isGood(float value, const movra_sr_options& options) {
  return std::isfinite(value) && !isFlagged(value) && static_cast<double>(value) >= options.lowest_valid &&
         static_cast<double>(value) <= options.highest_valid;
}

std::vector<float> flagged(const std::vector<float>& frame, const std::vector<unsigned char>& badPixels,
                           const movra_sr_options& options) {
  std::vector<float> result(frame);
  for (std::size_t i = 0; i < result.size(); ++i) {
    float& pixel = result[i];
    if (!badPixels.empty() && badPixels[i] != 0) {
      setBits(pixel, flag::invalid);
    } else if (!isFlagged(pixel) && static_cast<double>(pixel) > options.highest_valid) {
      setBits(pixel, flag::overRange);
    } else if (!isFlagged(pixel) && static_cast<double>(pixel) < options.lowest_valid) {
      setBits(pixel, flag::underRange);
    }
  }
  return result;
}

}  // namespace movra::vision::detail
