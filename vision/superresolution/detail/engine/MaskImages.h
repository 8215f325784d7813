#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// Copies height x width bytes of each mask, whatever the size of its elements, into an image of that size, which may be
/// part of a larger one.
template <class Mask, class Image>
void copyMasks(const std::vector<Mask*>& masks, int width, int height, std::vector<Image>& out) {
  out.resize(masks.size());
  for (std::size_t k = 0; k < out.size(); ++k) {
    out[k].create(height, width);
    const std::size_t rowBytes = static_cast<std::size_t>(width) * out[k].elemSize();
    std::size_t left = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    const auto* from = reinterpret_cast<const unsigned char*>(masks[k]);
    for (int y = 0; left > 0; ++y) {
      const std::size_t count = std::min(left, rowBytes);
      std::memcpy(out[k].ptr(y), from, count);
      from += count;
      left -= count;
    }
  }
}

}  // namespace movra::vision::detail
