#include "vision/superresolution/SrFloatNeon.h"

#include "vision/superresolution/detail/engine/NoReport.h"
#include "vision/superresolution/shared/BurstEngine.inl"

namespace movra::vision {

template class BurstEngine<SrFloatNeonRegistration, SrFloatNeonMinimization, NoBadPixelHandling, NoReport>;
template class SrFloatNeon<SrFloatNeonRegistration>;

}  // namespace movra::vision
