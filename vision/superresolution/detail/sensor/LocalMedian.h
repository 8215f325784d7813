#pragma once

#include <vector>

namespace movra::vision::detail {

/// One byte per pixel, row-major: not 0 where the pixel is bad.
using PixelMap = std::vector<unsigned char>;

/// Replaces every pixel that the map marks or that is not measured by the median of the others among its 8 neighbours,
/// or of the 24 or 80 around it where fewer than three of those are good. Where nothing is good so far around, it
/// becomes the median of the image's good pixels, or 0 if there is none.
/// @param bad one byte per pixel, or null for none
void fillByLocalMedian(float* image, int width, int height, const unsigned char* bad);

/// Whether all pixels are measured.
bool isWhole(const float* image, std::size_t pixels);

}  // namespace movra::vision::detail
