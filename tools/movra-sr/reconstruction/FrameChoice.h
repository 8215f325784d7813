#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/movra-sr/reconstruction/Parameters.h"
#include "tools/movra-sr/reconstruction/Window.h"

namespace movra::tool {

/// What became of the frames of a recording: each one's name, and the reason in words.
using FrameFates = std::vector<std::pair<std::string, std::string>>;

/// Keeps of a longer recording the frames that complement each other best, and the reference among them; the reference
/// slot follows. Registers all frames first.
/// @param count frames to keep; 0: 12, or 20 of noisy ones
FrameFates chooseFrames(Window& window, Parameters& parameters, int count);

}  // namespace movra::tool
