#include "vision/superresolution/SrFloatRegistration2.h"

namespace movra::vision {

SrFloatRegistration2::SrFloatRegistration2(int width, int height, int numFrames)
    : CornerRegistration(width, height, numFrames, "SrFloatRegistration2") {}

}  // namespace movra::vision
