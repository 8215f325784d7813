#pragma once

#include <algorithm>

#include "vision/superresolution/detail/base/AlignedArray.h"
#include "vision/superresolution/detail/base/BoxKernels.h"

namespace movra::vision::detail {

/// Box filter for dense images of one width, with its scratch memory: the mean over the window of half width `radius`
/// around each pixel, cut at the borders. Running sums go along rows, then along columns: a sum gains the entering
/// element, gives the mean, loses the leaving one. Whole windows are multiplied by the reciprocal of their length, cut
/// ones divided by it.
///
/// Rows enter in blocks and leave one by one; between the two directions only those in the window are kept:
///
///     block of sixteen rows --transpose, sums along rows, transpose--> ring --sums along columns--> row
class BoxFilter {
 public:
  explicit BoxFilter(int width);

  /// Filters an image of `height` rows. A radius of 0 or less leaves it as it is.
  /// @param block  (y, count) -> pointer to `count` consecutive rows from y on; asked in ascending order
  /// @param place  (y) -> where the filtered row y goes; may be over rows that `block` has given
  /// @param finish (y, row) called when that row is there, in ascending order
  template <class Block, class Place, class Finish>
  void run(int height, int radius, Block block, Place place, Finish finish) {
    start(height, radius);
    int emitted = 0;  // rows that have left
    for (int y = 0; y < height; y += boxRows) {
      const int count = std::min(boxRows, height - y);
      enterRows(block(y, count), y, count);
      const int complete = y + count < height ? y + count - reach : height;
      for (; emitted < complete; ++emitted) {
        float* row = place(emitted);
        emitRow(emitted, row);
        finish(emitted, row);
      }
    }
  }

  /// Filters a whole image; `out` may be `in`.
  void apply(const float* in, int height, int radius, float* out);

 private:
  void start(int imageHeight, int windowRadius);
  void enterRows(const float* rows, int y, int count);
  void emitRow(int y, float* out);
  float* ringRow(int y) { return ring.get() + static_cast<std::ptrdiff_t>(y % ringRows) * width; }

  int width;
  AlignedFloats scratch;  // sixteen rows, transposed, twice
  AlignedFloats sums;     // one row
  AlignedFloats ring;     // rows filtered along themselves
  int ringRows = 0;
  int ringCapacity = 0;
  int height = 0;  // of the image at hand, here and below
  int radius = 0;
  int reach = 0;  // the radius, cut at the height
};

}  // namespace movra::vision::detail
