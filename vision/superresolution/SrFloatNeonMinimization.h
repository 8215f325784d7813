#pragma once

#include "vision/superresolution/SrFloatNeonConvolution.h"
#include "vision/superresolution/shared/TvMinimization.h"

namespace movra::vision {

extern template class TvMinimization<SrFloatNeonConvolution>;

/// Minimisation of the vector engine: masks of one float per pixel, operators of SrFloatNeonConvolution. TvMinimization
/// has all its operations.
class MOVRA_SUPERRESOLUTION_API SrFloatNeonMinimization : public TvMinimization<SrFloatNeonConvolution> {
 public:
  using TvMinimization::TvMinimization;
};

}  // namespace movra::vision
