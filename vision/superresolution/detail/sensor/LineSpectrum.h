#pragma once

namespace movra::vision::detail {

/// Decimal logarithm of the power in the top fifth of frequencies along x over that along y: the median over blocks of
/// 32 x 32 pixels, so that a few edges do not decide. 0 where that cannot be told.
/// @param image height x width, all finite
double spectrumRatio(const float* image, int width, int height);

}  // namespace movra::vision::detail
