#include "vision/superresolution/detail/solver/MaskSpans.h"

#include <algorithm>

#include "vision/superresolution/detail/operators/PsfKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int blockWidth = 64;

}  // namespace

MaskSpans::MaskSpans(int width_, int height_, int frameCount)
    : width(width_), height(height_), blockCount((width_ + blockWidth - 1) / blockWidth) {
  const std::size_t rows = static_cast<std::size_t>(frameCount) * static_cast<std::size_t>(height);
  spans.reserve(rows);
  weights.reserve(rows * static_cast<std::size_t>(width));
}

void MaskSpans::note(int maskCount, const char* const* masks) {
  count = maskCount;
  spans.clear();
  weights.clear();
  for (int r = 0; r < height; ++r) {
    for (int k = 0; k < count; ++k) {
      const char* maskRow = masks[k] + static_cast<std::ptrdiff_t>(r) * width;
      const Span span = findSpan(maskRow);
      spans.push_back(span);
      weights.insert(weights.end(), maskRow + span.begin, maskRow + span.begin + span.width);
    }
  }
}

void MaskSpans::weight(int k, int r, float* row) const {
  const Span& span = spans[static_cast<std::size_t>(r) * static_cast<std::size_t>(count) + static_cast<std::size_t>(k)];
  if (span.width > 0) {
    psfKernels().weightRow(weights.data() + span.weights, row + span.begin, span.width, row + span.begin);
  }
}

MaskSpans::Span MaskSpans::findSpan(const char* maskRow) const {
  Span span{0, 0, weights.size()};
  if (psfKernels().isAllOnes(maskRow, width)) {
    return span;
  }
  int first = 0;
  while (!hasMaskedPixel(maskRow, first)) {
    ++first;
  }
  int last = blockCount - 1;
  while (!hasMaskedPixel(maskRow, last)) {
    --last;
  }
  span.begin = first * blockWidth;
  span.width = std::min((last + 1) * blockWidth, width) - span.begin;
  return span;
}

bool MaskSpans::hasMaskedPixel(const char* maskRow, int block) const {
  const int begin = block * blockWidth;
  return !psfKernels().isAllOnes(maskRow + begin, std::min(blockWidth, width - begin));
}

}  // namespace movra::vision::detail
