#pragma once

#include <string>
#include <vector>

#include "tools/movra-sr/reconstruction/Reconstruction.h"
#include "tools/movra-sr/report/Figures.h"

namespace movra::tool {

/// What became of the reconstruction, in one sentence without a full stop.
std::string statusInWords(const Reconstruction& result);

/// Hints about a result that the status does not show.
std::vector<std::string> remarks(const Reconstruction& result);

/// The sr factor and how to read it, or why there is none.
std::string srFactorInWords(const Reconstruction& result);

/// Minimum, mean and maximum of the inside.
std::string statisticsInWords(const Statistics& statistics, const std::string& unit);

/// One line per frame: its motion against the reference and how much of it could be used, or why it was left out.
std::string frameTable(const Reconstruction& result);

/// Whether it is good where frames fit, but most of their pixels do not.
bool isGoodInParts(const Reconstruction& result);

/// Whether all is as it should be, at least in parts.
bool isGood(const Reconstruction& result);

}  // namespace movra::tool
