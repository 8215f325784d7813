#pragma once

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/detail/localmotion/BlurredPyramid.h"

namespace movra::vision::detail {

/// Rough shift of a frame against the reference: the one with the largest normalised cross-correlation over the overlap,
/// of all shifts with an overlap of four tenths at the coarsest level, followed down to every second pixel. Right within a
/// pixel or two.
AffineMotion searchShift(const BlurredPyramid& reference, const BlurredPyramid& frame);

}  // namespace movra::vision::detail
