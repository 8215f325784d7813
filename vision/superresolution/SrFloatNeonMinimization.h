#pragma once

#include "vision/superresolution/shared/TvMinimization.h"

namespace movra::vision {

/// Minimisation of the vector engine: masks of one float per pixel, operators of SrFloatNeonConvolution. TvMinimization
/// has all its operations.
class MOVRA_SUPERRESOLUTION_API SrFloatNeonMinimization : public TvMinimization<float> {
 public:
  /// @param width  columns of a low-resolution frame
  /// @param height its rows
  /// @param frameCount    the most frames of one reconstruction
  /// @param factor        up-scaling factor
  /// @throws std::bad_array_new_length if a size is negative or too large
  SrFloatNeonMinimization(int width, int height, int frameCount, float factor);
};

}  // namespace movra::vision
