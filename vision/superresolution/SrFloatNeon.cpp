#include "vision/superresolution/SrFloatNeon.h"

#include "vision/superresolution/detail/BurstEngine.inl"
#include "vision/superresolution/detail/NoReport.h"

namespace movra::vision {

template class BurstEngine<SrFloatNeonRegistration, SrFloatNeonMinimization, NoBadPixelHandling, NoReport>;
template class SrFloatNeon<SrFloatNeonRegistration>;

}  // namespace movra::vision
