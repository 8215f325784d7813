#pragma once

#include <string>

#include "tools/movra-sr/io/OutputFile.h"
#include "vision/superresolution/FixedPattern.h"

namespace movra::tool {

/// The fixed pattern of a camera, averaged over bursts, as a TIFF file of two pages of 32-bit floats keeps it: the
/// pattern in the frames' unit, and the number of frames that told it, per pixel. The description says what it is and
/// which values it belongs to, which keeps any other file from being taken, or written over, as a pattern.

/// Which values a pattern belongs to: those of frames with this gain, of counts, or of calibrated frames.
std::string patternKind(double gain, bool counts, bool calibrated);

/// The pattern of the file; an empty one where there is no file. Throws Failure for a file that is no pattern, or one of
/// frames of another kind.
vision::PatternAverage readPattern(const std::string& file, const std::string& kind);

void writePattern(OutputFile& file, const vision::PatternAverage& pattern, const std::string& kind);

}  // namespace movra::tool
