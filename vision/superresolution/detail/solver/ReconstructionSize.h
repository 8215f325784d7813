#pragma once

#include <algorithm>
#include <new>

#include "vision/superresolution/detail/base/Sizes.h"

namespace movra::vision::detail {

/// Sizes of a reconstruction.
struct ReconstructionSize {
  int width, height;              // low-resolution frame
  int hrWidth, hrHeight;          // result
  int paddedWidth, paddedHeight;  // padded grid
  int psfSize;
  int frameCount;  // the most frames
  float factor;

  int framePixels() const { return width * height; }
  int paddedPixels() const { return paddedWidth * paddedHeight; }
};

/// The sizes of a reconstruction from frames of width x height pixels. A frame without pixels has no sides either.
/// @throws std::bad_array_new_length if a size is negative or too large
inline ReconstructionSize reconstructionSize(int width, int height, int frameCount, float factor) {
  // Up to here the float products and quotients of sizes do not lead beyond the frame.
  constexpr int largestSide = 1 << 22;
  const bool empty = checkedArea(height, width) == 0;
  if (width > largestSide || height > largestSide) {
    throw std::bad_array_new_length();
  }
  ReconstructionSize size{};
  size.width = empty ? 0 : width;
  size.height = empty ? 0 : height;
  size.hrWidth = scaledSize(size.width, factor);
  size.hrHeight = scaledSize(size.height, factor);
  size.psfSize = checkedSize(truncateToInt(3.0f * factor));
  // Below a factor of 1/3 there is no tap, and K - 1 would take a row and a column of the result away.
  size.paddedWidth = std::max(checkedPaddedSize(size.hrWidth, size.psfSize), size.hrWidth);
  size.paddedHeight = std::max(checkedPaddedSize(size.hrHeight, size.psfSize), size.hrHeight);
  checkedArea(size.paddedHeight, size.paddedWidth);
  size.frameCount = checkedSize(frameCount);
  size.factor = factor;
  return size;
}

}  // namespace movra::vision::detail
