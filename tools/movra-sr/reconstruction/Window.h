#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/io/Frames.h"

namespace movra::tool {

/// The frames that a reconstruction takes out of what the user gave.
struct Window {
  std::vector<Frame> frames;  ///< five, in order
  int given = 0;              ///< frames there were in all
};

/// Reads the files (folders expanded) and keeps five frames: those from the `first` one on, counted from 1,
/// or the last five. All frames are read and checked, five are held. Throws Failure for too few frames, sizes
/// that differ, and frames without usable values; `counts` tells raw sensor values from temperatures.
Window readWindow(const std::vector<std::string>& inputs, const Scale& scale, std::optional<int> first, bool counts);

}  // namespace movra::tool
