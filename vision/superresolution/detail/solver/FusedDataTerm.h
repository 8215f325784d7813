#pragma once

#include "vision/superresolution/detail/operators/RollingOperators.h"
#include "vision/superresolution/detail/solver/DataTerm.h"
#include "vision/superresolution/detail/solver/MaskedPixels.h"

namespace movra::vision::detail {

/// Data term at factor 2 with byte masks: all frames in one pass over the image, two rows of the result per band.
class FusedDataTerm : public DataTerm<char> {
 public:
  FusedDataTerm(int width, int height, int frameCount);

  void useFrames(const Frames& given) override;
  int bandCount() const override { return operators.outputPairs(); }
  Band band(int index) const override;
  void addOperator(int index, float* x, float* out) override;
  void backProject(int index, float** images, float* out) override;

 private:
  void enterPair(int s, const float* x);
  void spreadAll(int index, float* out);

  int width;
  int height;
  int paddedHeight;
  RollingOperators operators;
  MaskedPixels maskedPixels;
};

}  // namespace movra::vision::detail
