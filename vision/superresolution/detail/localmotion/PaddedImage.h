#pragma once

#include <cstddef>
#include <utility>

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/base/Mirror.h"

namespace movra::vision::detail {

/// Image of floats with a border of `pad` pixels on each side that can be read and written.
class PaddedImage {
 public:
  static constexpr int pad = 16;  // also what a vector is wide

  PaddedImage() = default;
  PaddedImage(int imageWidth, int imageHeight)
      : width_(imageWidth),
        height_(imageHeight),
        stride_(alignedWidth(imageWidth) + 2 * pad),
        memory(makeAlignedFloats(static_cast<std::size_t>(stride_) * static_cast<std::size_t>(imageHeight + 2 * pad))) {
  }

  int width() const { return width_; }
  int height() const { return height_; }
  std::ptrdiff_t stride() const { return stride_; }

  float* row(int y) { return memory.get() + (y + pad) * stride_ + pad; }
  const float* row(int y) const { return memory.get() + (y + pad) * stride_ + pad; }

  /// Fills the border with the mirror image about the outermost pixels; further ones where the image is smaller than the
  /// border.
  void mirror();

 private:
  int width_ = 0;
  int height_ = 0;
  std::ptrdiff_t stride_ = 0;
  AlignedFloats memory;
};

inline void PaddedImage::mirror() {
  for (int y = 0; y < height_; ++y) {
    float* const line = row(y);
    for (int i = 1; i <= pad; ++i) {
      line[-i] = line[mirrored(-i, width_)];
      line[width_ - 1 + i] = line[mirrored(width_ - 1 + i, width_)];
    }
  }
  for (int i = 1; i <= pad; ++i) {
    for (const int y : {-i, height_ - 1 + i}) {
      const float* const from = row(mirrored(y, height_)) - pad;
      float* const to = row(y) - pad;
      for (int x = 0; x < width_ + 2 * pad; ++x) {
        to[x] = from[x];
      }
    }
  }
}

}  // namespace movra::vision::detail
