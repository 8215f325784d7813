#include "vision/superresolution/SrFloat.h"

namespace movra::vision {

template <class R>
void SrFloat<R>::setDataIsNUC(bool isNUC) {
  this->badPixels().setDataIsNUC(isNUC);
}

template class SrFloat<SrFloatRegistration1>;
template class SrFloat<SrFloatRegistration2>;

}  // namespace movra::vision
