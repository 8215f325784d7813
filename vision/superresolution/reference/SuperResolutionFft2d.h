#pragma once

#include "vision/superresolution/SrFloatFft2d.h"

namespace movra::vision {

/// Fourier transforms of the reference engine. SrFloatFft2d has all its operations.
class MOVRA_SUPERRESOLUTION_API SuperResolutionFft2d : public SrFloatFft2d {
 public:
  using SrFloatFft2d::SrFloatFft2d;
};

}  // namespace movra::vision
