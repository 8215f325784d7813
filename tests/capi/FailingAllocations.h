#pragma once

namespace movra::test {

/// Number of allocations by `new` on this thread, in the whole program with its libraries, before one fails; below 0 none
/// fails. In programs that are linked with FailingAllocations.cpp.
extern thread_local int allocationsUntilFailure;

}  // namespace movra::test
