#pragma once

#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/detail/localmotion/BlockShifts.h"

namespace movra::vision::detail {

/// A motion and the share of the known blocks that lie within a quarter of a pixel of it.
struct SharedMotion {
  AffineMotion motion;
  double share;
};

/// Share of the known blocks that agree with a motion; 1 if there are too few blocks to tell.
double shareAgreeing(const BlockShifts& layout, const std::vector<BlockShift>& blocks, const AffineMotion& motion,
                     int width, int height);

/// Whether there are enough blocks to speak of agreement.
bool enoughBlocks(const std::vector<BlockShift>& blocks);

/// The affine motion that most blocks share (random sample consensus: M. A. Fischler and R. C. Bolles). A near object
/// that fills much of the view pulls a fit of all pixels to its own motion; most blocks may still show the scene behind it.
/// The share is 0 if there is none.
SharedMotion findConsensus(const BlockShifts& layout, const std::vector<BlockShift>& blocks, int width, int height);

}  // namespace movra::vision::detail
