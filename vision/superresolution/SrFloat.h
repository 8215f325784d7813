#pragma once

#include "vision/superresolution/SrFloatMinimization.h"
#include "vision/superresolution/SrFloatRegistration1.h"
#include "vision/superresolution/SrFloatRegistration2.h"
#include "vision/superresolution/SuperResolutionBadPixelHandling.h"
#include "vision/superresolution/shared/BurstEngine.h"

namespace movra::vision {

/// Writes the six-line timing report of each reconstruction to standard output. Exported because it is a template argument
/// of the exported engine: an argument that is hidden would hide the engine too.
class MOVRA_SUPERRESOLUTION_API ConsoleReport;

/// The production super-resolution engine; see BurstEngine for all its operations. `R` is the registration:
/// SrFloatRegistration2 (tracked corners) or SrFloatRegistration1 (phase correlation).
///
/// Bad pixels are repaired in each frame that enters and in each image that leaves, and every reconstruction writes a
/// six-line timing report to standard output.
template <class R>
class MOVRA_SUPERRESOLUTION_API SrFloat
    : public BurstEngine<R, SrFloatMinimization, SuperResolutionBadPixelHandling, ConsoleReport> {
 public:
  using SrFloat::BurstEngine::BurstEngine;

  /// Says whether frames hold raw sensor values (valid range -32768 ... 32767) or temperatures (-274 ... 5000, the
  /// default).
  void setDataIsNUC(bool isNUC);
};

extern template class BurstEngine<SrFloatRegistration1, SrFloatMinimization, SuperResolutionBadPixelHandling,
                                  ConsoleReport>;
extern template class BurstEngine<SrFloatRegistration2, SrFloatMinimization, SuperResolutionBadPixelHandling,
                                  ConsoleReport>;
extern template class SrFloat<SrFloatRegistration1>;
extern template class SrFloat<SrFloatRegistration2>;

}  // namespace movra::vision
