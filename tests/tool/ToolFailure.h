#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tools/movra-sr/Outcome.h"

/// The message of the failure, or nothing.
template <class Work>
std::string failureOf(Work work, movra::tool::ExitCode code = movra::tool::ExitCode::badInput) {
  try {
    work();
  } catch (const movra::tool::Failure& failure) {
    EXPECT_EQ(failure.code, code) << failure.what();
    return failure.what();
  }
  return {};
}
