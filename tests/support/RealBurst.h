#pragma once

#include <string>
#include <vector>

#include "tests/support/SyntheticBurst.h"

namespace movra::test {

/// Folder with one folder per recorded burst, frame_00 and so on in each: what the environment variable
/// MOVRA_TEST_DATA names, else ../shared/data beside the source tree. It is not part of the source tree.
std::string realBurstFolder();

/// Frames of a recorded burst, by number, as floats, without shifts or truth; no frames if there is no such burst.
SyntheticBurst readRealBurst(const std::string& name, const std::vector<int>& numbers);

}  // namespace movra::test
