#pragma once

#include "vision/superresolution/shared/TvMinimization.h"

namespace movra::vision {

/// Minimisation of the production engine: masks of one byte per pixel. At factor 2 all frames go through one pass over the
/// image per iteration, else one by one through SrFloatConvolution; the bits do not differ. TvMinimization has all its
/// operations.
class MOVRA_SUPERRESOLUTION_API SrFloatMinimization : public TvMinimization<char> {
 public:
  /// @param width  columns of a low-resolution frame
  /// @param height its rows
  /// @param frameCount    the most frames of one reconstruction
  /// @param factor        up-scaling factor
  /// @throws std::bad_array_new_length if a size is negative or too large
  SrFloatMinimization(int width, int height, int frameCount, float factor);
};

}  // namespace movra::vision
