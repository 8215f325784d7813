#pragma once

#include <gtest/gtest.h>

#include "vision/superresolution/detail/base/InstructionSet.h"

namespace movra::test {

/// Selects again, at its end, the instruction set that was active at its start.
class InstructionSetGuard {
 public:
  InstructionSetGuard() = default;
  InstructionSetGuard(const InstructionSetGuard&) = delete;
  InstructionSetGuard& operator=(const InstructionSetGuard&) = delete;
  ~InstructionSetGuard() { vision::detail::selectInstructionSet(before); }

 private:
  vision::detail::InstructionSet before = vision::detail::activeInstructionSet();
};

/// Runs `test` with the kernels of every instruction set that this processor has.
template <class Test>
void onEveryInstructionSet(Test test) {
  const InstructionSetGuard guard;
  for (const vision::detail::InstructionSet set : vision::detail::availableInstructionSets()) {
    SCOPED_TRACE(name(set));
    vision::detail::selectInstructionSet(set);
    EXPECT_EQ(vision::detail::activeInstructionSet(), set);
    test();
  }
}

}  // namespace movra::test
