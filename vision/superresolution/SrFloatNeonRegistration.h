#pragma once

#include "vision/superresolution/shared/CornerRegistration.h"

namespace movra::vision {

/// Corner-based registration of the vector engine: masks of one float per pixel. CornerRegistration has all its
/// operations.
class MOVRA_SUPERRESOLUTION_API SrFloatNeonRegistration : public CornerRegistration<float> {
 public:
  using Mask = float;

  /// @param width  columns of a frame
  /// @param height its rows
  /// @param numFrames     frames per burst
  /// @throws std::bad_array_new_length if an argument is negative or too large
  SrFloatNeonRegistration(int width, int height, int numFrames);
};

}  // namespace movra::vision
