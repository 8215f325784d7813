#pragma once

#include "vision/superresolution/detail/AlignedArray.h"

namespace movra::vision::detail {

/// Box filter for dense images of one width, with its scratch memory: the mean over the window of half width `radius`
/// around each pixel, cut at the borders. Running sums go along rows, then along columns: a sum gains the entering
/// element, gives the mean, loses the leaving one. Whole windows are multiplied by the reciprocal of their length, cut
/// ones divided by it.
class BoxFilter {
 public:
  explicit BoxFilter(int width);

  /// @param in, out height x width; may be the same
  /// @param between scratch, height x width, neither of them
  void apply(const float* in, int height, int radius, float* between, float* out);

 private:
  void filterColumns(const float* in, int height, int radius, float* out);

  int width;
  AlignedFloats scratch;  // sixteen rows, transposed, twice
  AlignedFloats sums;     // one row
};

}  // namespace movra::vision::detail
