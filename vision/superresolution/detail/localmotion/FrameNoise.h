#pragma once

namespace movra::vision::detail {

class PaddedImage;

/// Standard deviation of the noise of one frame: mean of |second difference in both directions| / 6 where the blurred frame
/// is flattest (J. Immerkaer), larger values cut off.
/// @param frame   height x width, dense
/// @param blurred the same frame, blurred
double estimateNoise(const float* frame, const PaddedImage& blurred);

}  // namespace movra::vision::detail
