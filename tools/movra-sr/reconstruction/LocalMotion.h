#pragma once

#include <vector>

#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/reconstruction/Parameters.h"
#include "tools/movra-sr/reconstruction/Reconstruction.h"

namespace movra::tool {

/// Reconstructs from any number of frames of one size, each part of the image with its own shift in each frame. Bad pixels
/// are masked. Throws Failure (wrong command line) for a parameter that the library refuses.
Reconstruction reconstructLocally(const std::vector<Frame>& window, const Parameters& parameters);

}  // namespace movra::tool
