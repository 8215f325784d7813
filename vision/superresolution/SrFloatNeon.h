#pragma once

#include "vision/superresolution/SrFloatNeonMinimization.h"
#include "vision/superresolution/SrFloatNeonRegistration.h"
#include "vision/superresolution/shared/BurstEngine.h"
#include "vision/superresolution/shared/NoBadPixelHandling.h"

namespace movra::vision {

/// No timing report. Exported because it is a template argument of the exported engine: an argument that is hidden would
/// hide the engine too.
class MOVRA_SUPERRESOLUTION_API NoReport;

/// The engine for processors with vectors of four floats; see BurstEngine for all its operations. `R` is the
/// registration, SrFloatNeonRegistration.
///
/// It differs from SrFloat in three ways: masks are floats from end to end, bad pixels are repaired neither in frames
/// nor in results (flagged pixels take part as the numbers that they are), and no timing report is written. On frames
/// without bad pixels the results of both have the same bits.
///
/// getMasks copies inputSize bytes, here only the first quarter of each mask; the rest of the image is unspecified.
template <class R>
class MOVRA_SUPERRESOLUTION_API SrFloatNeon
    : public BurstEngine<R, SrFloatNeonMinimization, NoBadPixelHandling, NoReport> {
 public:
  using SrFloatNeon::BurstEngine::BurstEngine;
};

extern template class BurstEngine<SrFloatNeonRegistration, SrFloatNeonMinimization, NoBadPixelHandling, NoReport>;
extern template class SrFloatNeon<SrFloatNeonRegistration>;

}  // namespace movra::vision
