#pragma once

#include <vector>

#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/reconstruction/Parameters.h"
#include "tools/movra-sr/reconstruction/Reconstruction.h"

namespace movra::tool {

/// Reconstructs from five frames of one size, oldest first, each with one shift, by an engine. Throws Failure for a frame
/// with too many bad pixels. The engine's timing report goes nowhere.
Reconstruction reconstructGlobally(const std::vector<Frame>& window, const Parameters& parameters);

}  // namespace movra::tool
