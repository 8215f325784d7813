#pragma once

#include "movra/Export.h"

namespace movra::vision {

/// Version of the library that is loaded, such as "1.2.0". Any thread.
MOVRA_SUPERRESOLUTION_API const char* libraryVersion();

/// The instruction set that hot loops use on this processor: "baseline", "avx2" or "avx512". Results have the same bits on
/// all of them. Any thread.
MOVRA_SUPERRESOLUTION_API const char* instructionSetInUse();

}  // namespace movra::vision
