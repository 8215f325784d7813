#pragma once

// What nearly every test starts from.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/Checks.h"
#include "tests/support/InstructionSetGuard.h"
#include "tests/support/SyntheticBurst.h"

/// Whether OpenCV's blur and corner strength fuse multiplication and addition here, which the library always does; else
/// there is nothing to compare its bits with.
inline bool openCvFuses() {
  return cv::checkHardwareSupport(CV_CPU_FMA3) && cv::checkHardwareSupport(CV_CPU_AVX2);
}
