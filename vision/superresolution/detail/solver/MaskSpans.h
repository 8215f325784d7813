#pragma once

#include <vector>

namespace movra::vision::detail {

/// Masks in compact form: for each row only the columns between its first and its last masked pixel, stored in the order
/// in which the solver reads rows. Most pixels are not masked, so this is much smaller than the masks.
class MaskSpans {
 public:
  MaskSpans(int width, int height, int frameCount);

  /// Takes note of `count` masks, height x width signed bytes each.
  void note(int count, const char* const* masks);

  /// Multiplies row r of frame k by its mask.
  void weight(int k, int r, float* row) const;

 private:
  /// The blocks of a row from the first to the last that has a masked pixel.
  struct Span {
    int begin;
    int width;
    std::size_t weights;  // where the part of the mask begins
  };

  Span findSpan(const char* maskRow) const;
  bool hasMaskedPixel(const char* maskRow, int block) const;

  int width;
  int height;
  int blockCount;  // of a row
  int count = 0;
  std::vector<Span> spans;
  std::vector<char> weights;
};

}  // namespace movra::vision::detail
