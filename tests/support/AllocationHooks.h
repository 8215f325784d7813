#pragma once

#include <cstddef>

// Counts the allocations of this process by operator new, by posix_memalign and for the pixels of cv::Mat, and lets chosen
// ones fail. For one thread.
namespace movra::test::allocations {

extern long made;
extern std::size_t bytes;

/// Lets the allocations number `first` (0 = the next), first + 1, ... fail, `count` of them.
void failFrom(long first, long count);

/// Nothing fails any more.
/// @return whether anything has failed since failFrom
bool disarm();

}  // namespace movra::test::allocations
