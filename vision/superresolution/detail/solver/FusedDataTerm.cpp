#include "vision/superresolution/detail/solver/FusedDataTerm.h"

#include <algorithm>

#include "vision/superresolution/detail/operators/PsfKernels.h"

namespace movra::vision::detail {

FusedDataTerm::FusedDataTerm(const ReconstructionSize& size)
    : width(size.width),
      height(size.height),
      paddedHeight(size.paddedHeight),
      operators(size.width, size.height, size.frameCount),
      maskSpans(size.width, size.height, size.frameCount) {}

void FusedDataTerm::useFrames(const Frames& given) {
  frames = given;
  maskSpans.note(frames.count, frames.masks);
}

FusedDataTerm::Band FusedDataTerm::band(int index) const {
  return {2 * index, std::min(2 * index + 2, paddedHeight), std::min(2 * index + 6, paddedHeight)};
}

void FusedDataTerm::addOperator(int index, float* x, float* out) {
  for (int s = index == 0 ? 0 : index + 2; s <= std::min(index + 2, operators.inputPairs() - 1); ++s) {
    enterPair(s, x);
  }
  operators.openOnto(out, index);
  spreadAll(index, out);
}

void FusedDataTerm::backProject(int index, float** images, float* out) {
  if (index < height) {
    const std::ptrdiff_t begin = static_cast<std::ptrdiff_t>(index) * width;
    for (int k = 0; k < frames.count; ++k) {
      psfKernels().weightRow(frames.masks[k] + begin, images[k] + begin, width, operators.sampleRow(k, index));
    }
  }
  operators.openOntoZeros();
  spreadAll(index, out);
}

void FusedDataTerm::enterPair(int s, const float* x) {
  operators.enter(x, s);
  const int r = s - 2;
  for (int k = 0; k < frames.count; ++k) {
    float* samples = r >= 0 ? operators.sampleRow(k, r) : operators.discarded();
    operators.image(k, frames.psfs->x(k), frames.psfs->y(k), samples);
    if (r >= 0) {
      maskSpans.weight(k, r, samples);
    }
  }
}

void FusedDataTerm::spreadAll(int index, float* out) {
  for (int k = 0; k < frames.count; ++k) {
    operators.spread(k, index, frames.psfs->x(k), frames.psfs->y(k));
  }
  operators.close(out, index);
}

}  // namespace movra::vision::detail
