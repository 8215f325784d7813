#pragma once

#include "tools/movra-sr/reconstruction/Reconstruction.h"
#include "tools/movra-sr/report/Console.h"
#include "tools/movra-sr/report/Figures.h"

namespace movra::tool {

/// All figures of a result, as --json and the report give them. Lengths are low-resolution pixels unless the key says
/// otherwise.
Json describe(const Reconstruction& result, const std::optional<Statistics>& statistics);

}  // namespace movra::tool
