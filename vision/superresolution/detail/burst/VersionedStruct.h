#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace movra::vision::detail {

// Structs of Burst.h begin with their size, so that caller and library may be of different versions.

/// Copies a struct that begins with its size between versions of the library: what one side lacks is zero.
template <class Struct>
void copyKnownPart(void* to, std::size_t toSize, const Struct& from) {
  std::memset(to, 0, toSize);
  std::memcpy(to, &from, std::min(toSize, sizeof from));
  std::memcpy(to, &toSize, sizeof toSize);
}

/// Whether the caller has set the size of a struct.
/// @param firstVersion size of the struct in the first version that had it
inline bool isSize(std::size_t size, std::size_t firstVersion) {
  constexpr std::size_t largestStruct = 4096;  // a larger size was never set
  return size >= firstVersion && size <= largestStruct;
}

}  // namespace movra::vision::detail
