#pragma once

namespace movra::vision::detail {

/// Sizes of a reconstruction.
struct ReconstructionSize {
  int width, height;              // low-resolution frame
  int hrWidth, hrHeight;          // result
  int paddedWidth, paddedHeight;  // padded grid
  int psfSize;
  float factor;
};

}  // namespace movra::vision::detail
