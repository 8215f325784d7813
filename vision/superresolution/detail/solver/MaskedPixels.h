#pragma once

#include <vector>

namespace movra::vision::detail {

/// Which pixels of the frames are masked, row by row. Most are not: what is kept of the masks is much smaller than they
/// are, and lies in the order in which the rows are weighted.
class MaskedPixels {
 public:
  MaskedPixels(int width, int height, int frameCount);

  /// Takes note of `count` masks, height x width signed bytes each.
  void note(int count, const char* const* masks);

  /// Multiplies row r of frame k by its mask.
  void weight(int k, int r, float* row) const;

 private:
  /// Columns of a row between the first and the last that are masked, in whole blocks.
  struct Span {
    int begin;
    int width;
    std::size_t weights;  // where their part of the mask is
  };

  Span findSpan(const char* maskRow) const;
  bool isMasked(const char* maskRow, int block) const;

  int width;
  int height;
  int blockCount;  // of a row
  int count = 0;
  std::vector<Span> spans;
  std::vector<char> weights;
};

}  // namespace movra::vision::detail
