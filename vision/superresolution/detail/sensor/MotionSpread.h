#pragma once

#include <vector>

#include "vision/superresolution/AffineMotion.h"

namespace movra::vision::detail {

/// Median distance between two frames of the burst, in low-resolution pixels at the middle of the image. Motions that
/// are not finite are left out; 0 for fewer than two.
double medianDistance(const std::vector<AffineMotion>& motions);

}  // namespace movra::vision::detail
