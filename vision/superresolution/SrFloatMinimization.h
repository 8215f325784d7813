#pragma once

#include "vision/superresolution/SrFloatConvolution.h"
#include "vision/superresolution/shared/TvMinimization.h"

namespace movra::vision {

extern template class TvMinimization<SrFloatConvolution>;

/// Minimisation of the production engine: masks of one byte per pixel, operators of SrFloatConvolution. TvMinimization has
/// all its operations.
class MOVRA_SUPERRESOLUTION_API SrFloatMinimization : public TvMinimization<SrFloatConvolution> {
 public:
  using TvMinimization::TvMinimization;
};

}  // namespace movra::vision
