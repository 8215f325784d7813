#pragma once

#include <vector>

#include "vision/superresolution/detail/DataTerm.h"
#include "vision/superresolution/detail/RollingOperators.h"

namespace movra::vision::detail {

/// Data term at factor 2 with byte masks: all frames in one pass over the image, two rows of the result per band.
class FusedDataTerm : public DataTerm<char> {
 public:
  FusedDataTerm(int width, int height, int frameCount);

  int bandCount() const override { return operators.outputPairs(); }
  Band band(int index) const override;
  void addOperator(int index, const Frames& frames, float* x, float* out) override;
  void backProject(int index, const Frames& frames, float** images, float* out) override;

 private:
  void findMaskedRows(const Frames& frames);
  void enterPair(int s, const Frames& frames, const float* x);
  void spreadAll(int index, const Frames& frames, float* out);

  int width;
  int height;
  int paddedHeight;
  RollingOperators operators;
  std::vector<char> isMasked;  // per frame and row: true when the mask is not 1 everywhere
};

}  // namespace movra::vision::detail
