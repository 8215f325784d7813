#pragma once

namespace movra::vision::detail {

/// Where a mirror at both ends of 0 ... size - 1 shows position i; the outermost positions are not repeated.
inline int mirrored(int i, int size) {
  if (size == 1) {
    return 0;
  }
  while (i < 0 || i >= size) {
    i = i < 0 ? -i : 2 * (size - 1) - i;
  }
  return i;
}

}  // namespace movra::vision::detail
