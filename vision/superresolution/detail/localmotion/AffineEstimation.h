#pragma once

#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/detail/localmotion/ReferenceGrid.h"

namespace movra::vision::detail {

/// A frame as the motion estimation sees it.
struct MotionFrame {
  const BlurredPyramid* pyramid;
  const unsigned char* usable;  // height x width, 0 where nothing is known around the pixel; null: everywhere usable
};

/// Affine motion of frames against one reference by Gauss-Newton steps on the blurred images, coarse to fine (B. D. Lucas
/// and T. Kanade), with a free difference of level and weights that bound the influence of large differences (P. J. Huber).
class AffineEstimation {
 public:
  explicit AffineEstimation(const MotionFrame& reference);

  const ReferenceGrid& finest() const { return grids.front(); }
  const unsigned char* usable() const { return reference.usable; }  // of the reference

  /// The motion from a rough start; the start itself where the images do not determine one.
  /// @param coarsest first level to work on; 0 refines a motion that is nearly right
  /// @param where height x width, places of the reference that count, other than 0; null: all
  AffineMotion estimate(const MotionFrame& frame, const AffineMotion& start, int coarsest,
                        const char* where = nullptr) const;

  int coarsestLevel() const { return static_cast<int>(grids.size()) - 1; }

 private:
  struct Scratch;
  bool step(const ReferenceGrid& grid, const MotionFrame& frame, const char* where, AffineMotion& motion,
            Scratch& scratch, double& moved) const;

  MotionFrame reference;
  std::vector<ReferenceGrid> grids;
};

}  // namespace movra::vision::detail
