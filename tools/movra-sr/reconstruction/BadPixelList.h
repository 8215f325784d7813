#pragma once

#include <opencv2/core.hpp>

#include "tools/movra-sr/io/BadPixelFile.h"

namespace movra::tool {

/// Adds the pixels of `found` that are not yet in the list, and chooses replacements. Lists as the library's BadPixel
/// describes them.
void appendNewPixels(cv::Mat_<unsigned short>& list, const cv::Mat_<unsigned short>& found, cv::Size size,
                     unsigned int radius);

/// Gives pixels for which no replacement was found the same mark in all four places; returns their number.
int markUnreplaced(cv::Mat_<unsigned short>& list, cv::Size size);

/// The list of a camera after another burst, in which the pixels of the map (other than 0, frame size) were found. A
/// pixel found for the first time is kept as doubtful; certain ones stay.
BadPixelFile grownBy(const BadPixelFile& known, const cv::Mat_<unsigned char>& found);

}  // namespace movra::tool
