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
