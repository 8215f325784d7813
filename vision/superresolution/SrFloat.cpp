#include "vision/superresolution/SrFloat.h"

#include "vision/superresolution/detail/engine/ConsoleReport.h"
#include "vision/superresolution/shared/BurstEngine.inl"

namespace movra::vision {

template <class R>
void SrFloat<R>::setDataIsNUC(bool isNUC) {
  this->badPixelHandling.setDataIsNUC(isNUC);
}

template class BurstEngine<SrFloatRegistration1, SrFloatMinimization, SuperResolutionBadPixelHandling, ConsoleReport>;
template class BurstEngine<SrFloatRegistration2, SrFloatMinimization, SuperResolutionBadPixelHandling, ConsoleReport>;
template class SrFloat<SrFloatRegistration1>;
template class SrFloat<SrFloatRegistration2>;

}  // namespace movra::vision
