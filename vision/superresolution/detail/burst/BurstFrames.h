#pragma once

#include <cstddef>
#include <vector>

#include "vision/superresolution/Burst.h"

namespace movra::vision::detail {

/// What a handle of Burst.h was given: frames as they came, height x width each, oldest first, and the pixels of the
/// sensor that are known to be bad.
struct BurstFrames {
  int width;
  int height;
  std::vector<std::vector<float>> frames;
  std::vector<unsigned char> badPixels;  ///< height x width, other than 0 where bad; empty: none
  std::vector<float> pattern;            ///< height x width; empty: none

  std::size_t pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
  int count() const { return static_cast<int>(frames.size()); }
};

/// Whether the value can be used: finite, within the options' valid range and no flag of the camera.
bool isGood(float value, const movra_sr_options& options);

/// The frame with every pixel flagged that is listed as bad or out of the options' valid range.
/// @param badPixels one byte per pixel, or empty
std::vector<float> flagged(const std::vector<float>& frame, const std::vector<unsigned char>& badPixels,
                           const movra_sr_options& options);

}  // namespace movra::vision::detail
