#pragma once

#include <vector>

#include "vision/superresolution/BurstBadPixels.h"

namespace movra::vision::detail {

/// Pixels whose residuals are large against their surroundings and against the detail of the prediction there: stuck,
/// offset and flickering ones, in this order; a pixel may be found several times, the first time as what it is.
/// @param strict for frames that lie less than a pixel apart: only what exceeds most of the detail, and no groups
std::vector<BadPixelFinding> findFaults(const FrameStack& frames, const FrameStack& residuals, bool strict);

}  // namespace movra::vision::detail
