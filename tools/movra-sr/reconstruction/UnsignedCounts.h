#pragma once

#include <vector>

#include "tools/movra-sr/io/Frames.h"

namespace movra::tool {

/// What is subtracted from unsigned 16-bit counts where signed ones are expected: 0 ... 65535 becomes -32768 ... 32767.
constexpr float unsignedMiddle = 32768;

/// Whether the values must be unsigned 16-bit counts: more than a few defects lie above 32767, and none below 0.
bool holdsUnsignedCounts(const cv::Mat_<float>& image);
bool holdUnsignedCounts(const std::vector<Frame>& frames);

}  // namespace movra::tool
