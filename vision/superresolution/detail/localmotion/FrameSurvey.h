#pragma once

#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/detail/localmotion/TiledReconstruction.h"

namespace movra::vision::detail {

/// What a look at a frame of half the size tells.
struct SurveyedFrame {
  bool valid = false;   // it has a valid pixel
  AffineMotion motion;  // against the reference
  double agreement = 0;
  double residual = 0;  // robust deviation of the moved, blurred frame from the reference
  double level = 0;     // median difference to the reference
};

/// Rough motions of all frames of a recording, by which frames are chosen: one pass over each, at half its size, a
/// quarter of the work of the motion that a reconstruction measures. No memory is kept.
class FrameSurvey {
 public:
  /// @param lowest, highest valid values
  FrameSurvey(int width, int height, float lowest, float highest);

  /// @param frames height x width each
  std::vector<SurveyedFrame> look(const std::vector<const float*>& frames, int reference, const JobRunner& run) const;

 private:
  struct Small;
  bool shrink(const float* frame, Small& small) const;

  int width;
  int height;
  float lowest;
  float highest;
  int factor;  // 2, or 1 of small frames
};

}  // namespace movra::vision::detail
