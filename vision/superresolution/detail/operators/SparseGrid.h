#pragma once

#include <algorithm>
#include <cstddef>

namespace movra::vision::detail {

/// Signed index into an image; wide enough for every product of two int sizes that fits the memory.
using Index = std::ptrdiff_t;

/// Elements of a rows x columns image; none if a size is not positive.
inline Index elementCount(Index rows, Index columns) {
  return rows > 0 && columns > 0 ? rows * columns : 0;
}

/// The low-resolution grid inside a high-resolution one. The column stride follows the factor; so does the row stride
/// unless one is given.
///
/// The sizes are cut to what the padded grid holds. That matters where the given row stride is larger than the factor,
/// and beyond 2^24 pixels, where the float division may round up. A factor below 1 or not a number gives an empty grid;
/// the strides of an empty grid are 0.
struct SparseGrid {
  /// Low-resolution columns and rows.
  Index width = 0;
  Index height = 0;
  /// High-resolution columns from one low-resolution column to the next.
  Index columnStride = 0;
  /// Elements from one low-resolution row to the next in an image of `width` columns that has a row for every
  /// row of the padded grid.
  Index rowStep = 0;

  SparseGrid(int hrWidth, int hrHeight, float factor, int rowStride = 0) {
    if (!(factor >= 1.0f)) {
      return;
    }
    width = static_cast<Index>(static_cast<float>(hrWidth) / factor);
    height = static_cast<Index>(static_cast<float>(hrHeight) / factor);
    if (width == 0 || height == 0) {
      return;
    }
    columnStride = static_cast<Index>(factor);
    width = std::min(width, (hrWidth - 1) / columnStride + 1);
    rowStep =
        rowStride > 0 ? rowStride * width : width + static_cast<Index>((factor - 1.0f) * static_cast<float>(width));
    height = std::min(height, (hrHeight - 1) * width / rowStep + 1);
  }
};

}  // namespace movra::vision::detail
