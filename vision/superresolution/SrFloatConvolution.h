#pragma once

#include "vision/superresolution/shared/SparseConvolution.h"

namespace movra::vision {

/// The operators of the production engine: masks of one byte per pixel. SparseConvolution has all of them.
class MOVRA_SUPERRESOLUTION_API SrFloatConvolution : public SparseConvolution<char> {
 public:
  using SparseConvolution::SparseConvolution;
};

}  // namespace movra::vision
