#pragma once

#include "vision/superresolution/shared/SparseConvolution.h"

namespace movra::vision {

/// The operators of the vector engine: masks of one float per pixel. SparseConvolution has all of them. At factor 2 they
/// work in vectors of four floats: the NEON operations of ARM processors, and the same ones from SIMDe on others.
class MOVRA_SUPERRESOLUTION_API SrFloatNeonConvolution : public SparseConvolution<float> {
 public:
  using SparseConvolution::SparseConvolution;
};

}  // namespace movra::vision
