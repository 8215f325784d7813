#pragma once

#include "vision/superresolution/shared/CornerRegistration.h"

namespace movra::vision {

/// Corner-based registration of the production engine: masks of one byte per pixel. CornerRegistration has all its
/// operations.
class MOVRA_SUPERRESOLUTION_API SrFloatRegistration2 : public CornerRegistration<char> {
 public:
  using Mask = char;

  /// @param width  columns of a frame
  /// @param height its rows
  /// @param numFrames     frames per burst
  /// @throws std::bad_array_new_length if an argument is negative or too large
  SrFloatRegistration2(int width, int height, int numFrames);
};

}  // namespace movra::vision
