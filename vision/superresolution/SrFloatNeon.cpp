#include "vision/superresolution/SrFloatNeon.h"

namespace movra::vision {

template class SrFloatNeon<SrFloatNeonRegistration>;

}  // namespace movra::vision
