#pragma once

#include "vision/superresolution/detail/operators/RollingOperators.h"
#include "vision/superresolution/detail/solver/DataTerm.h"
#include "vision/superresolution/detail/solver/MaskSpans.h"
#include "vision/superresolution/detail/solver/ReconstructionSize.h"

namespace movra::vision::detail {

/// Data term at factor 2 with byte masks: all frames in one pass over the image, two rows of the result per band. It
/// gives the bits of WholeImageDataTerm<SrFloatConvolution>.
class FusedDataTerm : public DataTerm<char> {
 public:
  /// @param size one that RollingOperators::serve
  explicit FusedDataTerm(const ReconstructionSize& size);

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
  MaskSpans maskSpans;
};

}  // namespace movra::vision::detail
