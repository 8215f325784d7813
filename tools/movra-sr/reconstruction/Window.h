#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/io/FrameSource.h"

namespace movra::tool {

/// Which frames are wanted.
struct WindowChoice {
  std::optional<int> first;  ///< number of the first one, from 1; else the last ones
  int least = 1;
  int most = 0;         ///< 0: all
  bool counts = false;  ///< raw sensor values, not temperatures
  /// Whether a frame without usable values is left out, with a reason; else it is refused.
  bool leaveOut = false;
};

/// The frames that a reconstruction takes out of what the user gave.
struct Window {
  std::vector<Frame> frames;       ///< in order
  int given = 0;                   ///< frames there were in all
  std::vector<std::string> notes;  ///< what the user should know: files skipped, frames left out and why
};

/// Reads the frames that are wanted, those from the first one on, or the last; others are not looked at. Throws Failure for
/// too few frames, sizes that differ, and, unless it is left out, a frame without usable values.
Window readWindow(FrameSource& source, const WindowChoice& choice);

/// Why a frame cannot be used: its usable values are none, too few or all the same; and after a semicolon what to do. Empty
/// when it can.
std::string faultOf(const Frame& frame, bool counts);

/// The note on a frame that is left out for this fault.
std::string leftOut(const Frame& frame, const std::string& fault);

/// Throws Failure for frames that are too small, or of different sizes.
void requireSameSize(const std::vector<Frame>& frames);

/// The place in the window of the frame that `text` names: a number, counted back from the newest (0), or a file. Empty
/// text means the default: the fourth from the end, or the oldest of fewer. Throws Failure (wrong command line).
int findReference(const Window& window, const std::string& text);

}  // namespace movra::tool
