#pragma once

#include <string>

#include "tools/movra-sr/reconstruction/Reconstruction.h"
#include "tools/movra-sr/reconstruction/Window.h"

namespace movra::tool {

/// What became of the reconstruction, in one sentence without a full stop.
std::string statusInWords(const Reconstruction& result, const Window& window);

/// A hint about a good result that the sr factor does not show; empty if there is none.
std::string remark(const Reconstruction& result);

/// The sr factor and how to read it, or why there is none.
std::string srFactorInWords(const Reconstruction& result);

/// One line per frame: its shift against the reference and the share of its pixels that could be used,
/// if the engine tells.
std::string frameTable(const Reconstruction& result, const Window& window, const Parameters& parameters);

}  // namespace movra::tool
