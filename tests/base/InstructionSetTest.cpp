#include "vision/superresolution/detail/base/InstructionSet.h"

#include <gtest/gtest.h>

using namespace movra::vision::detail;

TEST(InstructionSet, TheWidestAvailableOneIsActiveUnlessAnotherIsSelected) {
  const auto sets = availableInstructionSets();
  ASSERT_FALSE(sets.empty());
  EXPECT_EQ(sets.front(), InstructionSet::baseline);
  EXPECT_EQ(activeInstructionSet(), sets.back());
}
