#pragma once

#include <vector>

#include "vision/superresolution/detail/localmotion/AffineEstimation.h"
#include "vision/superresolution/detail/localmotion/BlockShifts.h"
#include "vision/superresolution/detail/localmotion/MotionField.h"

namespace movra::vision::detail {

/// What a frame's motion against the reference is.
struct FrameMotion {
  MotionField field;
  std::vector<MotionField> others;  // fields of another motion that it shows as well, such as that of something near:
                                    // none or one
  double agreement = 1;             // share of the blocks that agree with one of these motions
};

/// Finds the motions of frames against one reference. Where the blocks do not agree with one affine motion, it looks for the
/// one that they share, and for two that they belong to; two are made more accurate in turn, each by the pixels that it
/// explains best.
class FrameMotionSearch {
 public:
  /// @param noise standard deviation of a pixel of a frame
  FrameMotionSearch(const MotionFrame& reference, double noise);

  /// @param isRough whether `start` is not known to within a pixel
  FrameMotion find(const MotionFrame& frame, const AffineMotion& start, bool isRough) const;

 private:
  void separate(const MotionFrame& frame, AffineMotion (&motions)[2]) const;

  MotionFrame reference;
  int width;
  int height;
  AffineEstimation estimation;
  BlockShifts blocks;
};

}  // namespace movra::vision::detail
