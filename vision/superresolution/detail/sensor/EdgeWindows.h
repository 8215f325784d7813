#pragma once

#include <vector>

#include "vision/superresolution/detail/sensor/EdgeFit.h"

namespace movra::vision::detail {

/// Square parts of an image that a straight edge crosses near their middle, strongest first, none overlapping another by
/// more than half.
/// @param image height x width, all finite
std::vector<EdgeWindow> findEdgeWindows(const float* image, int width, int height);

}  // namespace movra::vision::detail
