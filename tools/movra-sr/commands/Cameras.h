#pragma once

#include <string>

#include "tools/movra-sr/report/Console.h"

namespace movra::tool {

/// The width of the point-spread function of a camera and lens such as "m07 FOV 15", high-resolution pixels. Throws
/// Failure (wrong command line) for one that is not known.
float psfSigmaOf(const std::string& description);

/// The known cameras with their widths, on the console and in its document.
void listCameras(Console& console);

}  // namespace movra::tool
