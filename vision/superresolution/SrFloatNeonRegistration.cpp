#include "vision/superresolution/SrFloatNeonRegistration.h"

namespace movra::vision {

SrFloatNeonRegistration::SrFloatNeonRegistration(int width, int height, int numFrames)
    : CornerRegistration(width, height, numFrames, "SrFloatNeonRegistration") {}

}  // namespace movra::vision
