#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// Recomputes the pixels of a reconstruction that derive from bad pixels.
/// @param shifts complete shifts, one per frame held
/// @param frames buffers of the repaired frames, oldest first, of `frameSize`; surplus ones are not read
template <class BadPixels>
void repairImage(BadPixels& badPixels, cv::Mat_<float> image, const std::vector<cv::Point_<float>>& shifts,
                 const std::vector<float*>& frames, cv::Size frameSize) {
  std::vector<cv::Mat_<float>> inputs;
  for (std::size_t i = 0; i < shifts.size(); ++i) {
    inputs.emplace_back(frameSize.height, frameSize.width, frames[i]);
  }
  badPixels.maskBadPixel(image, shifts);
  badPixels.replaceMaskedPixel(image, shifts, inputs);
}

}  // namespace movra::vision::detail
