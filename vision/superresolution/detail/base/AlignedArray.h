#pragma once

#include <cstddef>
#include <memory>

namespace movra::vision::detail {

struct FreeAligned {
  void operator()(float* memory) const;
};

/// Array of floats aligned to the widest vector and to a cache line.
using AlignedFloats = std::unique_ptr<float[], FreeAligned>;

/// `size` floats, all zero. Large arrays ask for huge pages: a solver streams through tens of megabytes, and with small
/// pages it would wait for address translation.
AlignedFloats makeAlignedFloats(std::size_t size);

/// `width` rounded up so that consecutive rows start aligned.
constexpr int alignedWidth(int width) {
  return (width + 15) / 16 * 16;
}

}  // namespace movra::vision::detail
