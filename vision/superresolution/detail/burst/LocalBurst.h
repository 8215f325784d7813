#pragma once

#include "vision/superresolution/detail/burst/BurstFrames.h"
#include "vision/superresolution/detail/burst/BurstOutcome.h"

namespace movra::vision::detail {

/// Reconstruction with a motion for each part of the image, by LocalMotionSuperResolution.
/// @throws whatever that throws
/// @param wantsImage false: registration alone
BurstOutcome reconstructLocally(const BurstFrames& burst, const movra_sr_options& options, bool wantsImage);

}  // namespace movra::vision::detail
