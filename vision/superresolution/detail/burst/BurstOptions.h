#pragma once

#include "vision/superresolution/Burst.h"

namespace movra::vision::detail {

/// What movra_sr_default_options gives.
movra_sr_options defaultOptions();

/// Our options out of the caller's, which another version may have made. Of longer ones the rest has to be zero.
/// @return whether they could be read
bool readOptions(const movra_sr_options& given, movra_sr_options& options);

/// What is wrong with the options for frames of this size, or with the size; null if nothing is.
const char* faultOf(const movra_sr_options& options, int width, int height);

}  // namespace movra::vision::detail
