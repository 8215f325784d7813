#pragma once

#include <vector>

#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/reconstruction/Parameters.h"
#include "tools/movra-sr/reconstruction/Reconstruction.h"

namespace movra::tool {

/// Reconstructs from a window of frames of one size by the method that the parameters name. Throws Failure.
Reconstruction reconstruct(const std::vector<Frame>& window, const Parameters& parameters);

}  // namespace movra::tool
