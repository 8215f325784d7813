#pragma once

#include <cstddef>

namespace movra::vision::detail {

/// Shape of the patches that are tracked, counted in elements: a pixel of several channels is as many elements.
struct PatchShape {
  int width;     // elements of a row
  int height;    // rows
  int channels;  // distance of an element and its neighbour to the right

  /// Patches are stored in blocks of eight elements, row by row, the last of each row filled up with zeros.
  int blocksPerRow() const { return (width + 7) / 8; }
};

/// Eight elements of a patch. In a whole block, those whose products are added first stand beside each other: 0, 4, 1, 5,
/// 2, 6, 3, 7. The rest of a row stands in order, x and y of its gradients side by side: 0-3 and 4-7.
struct alignas(16) PatchBlock {
  short grey[8];
  short gradients[2][8];
};

/// Weights of an element, of its neighbour to the right, and of the two below them, in 1/16384.
using BilinearWeights = short[4];

/// Where an image is compared with a patch.
struct ImagePlace {
  const unsigned char* grey;
  std::ptrdiff_t stride;
  BilinearWeights weights;
};

/// Kernels over small patches between pixels. Grey values of a patch are in 1/32 grey levels, gradients as
/// cv::buildOpticalFlowPyramid makes them, each rounded half up. They are read at whole positions with their neighbours to
/// the right and below.
///
/// Sums over a patch are in float: four partial sums over whole blocks, element k going to number k mod 4, and one over
/// what is left of the rows, in order of rows and columns. The result is rest + ((0 + 2) + (1 + 3)). Strides count
/// elements.
struct PatchKernels {
  /// Reads a patch at `grey` and at `derivatives`, x and y of each element side by side; sums: gradX^2, gradX gradY,
  /// gradY^2.
  void (*readPatch)(const unsigned char* grey, std::ptrdiff_t greyStride, const short* derivatives,
                    std::ptrdiff_t derivativeStride, const PatchShape& shape, const BilinearWeights& weights,
                    PatchBlock* patch, float* sums);

  /// For each image the sums of gradX D and gradY D, D = image - patch. Products of elements k and k + 4 of a block are
  /// added as integers.
  void (*mismatch)(const ImagePlace* const* places, int count, const PatchShape& shape, const PatchBlock* patch,
                   float* const* sums);

  /// Sum of |image - patch|.
  long (*distance)(const ImagePlace& place, const PatchShape& shape, const PatchBlock* patch);

  /// Derivatives (H. Scharr) of a row of `width` pixels, x and y of each element side by side: differences of the
  /// neighbours, weighted 3, 10 and 3 over three rows or columns; mirrored at both ends.
  void (*scharrRow)(const unsigned char* above, const unsigned char* row, const unsigned char* below, int width,
                    int channels, short* derivatives);
};

/// The kernels of the active instruction set.
const PatchKernels& patchKernels();

}  // namespace movra::vision::detail
