#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

namespace movra::vision::detail {

/// Array aligned to the widest vector and to a cache line.
constexpr std::size_t arrayAlignment = 64;

struct FreeAligned {
  void operator()(void* memory) const { ::operator delete[](memory, std::align_val_t{arrayAlignment}); }
};

using AlignedFloats = std::unique_ptr<float[], FreeAligned>;

/// `size` floats, all zero.
inline AlignedFloats makeAlignedFloats(std::size_t size) {
  auto* memory = static_cast<float*>(::operator new[](size * sizeof(float), std::align_val_t{arrayAlignment}));
  std::fill_n(memory, size, 0.0f);
  return AlignedFloats(memory);
}

/// `width` rounded up so that consecutive rows start aligned.
constexpr int alignedWidth(int width) { return (width + 15) / 16 * 16; }

}  // namespace movra::vision::detail
