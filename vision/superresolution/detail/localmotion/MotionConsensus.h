#pragma once

#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/detail/localmotion/BlockShifts.h"

namespace movra::vision::detail {

/// How the known blocks agree with a motion. A block agrees that lies within a quarter of a pixel of it.
struct Agreement {
  double share = 0;      // of the known blocks that agree, 0 ... 1
  double closeness = 0;  // the same, each block weighted by 1 - d^2 / (a quarter pixel)^2, d its distance
};

struct SharedMotion {
  AffineMotion motion;
  Agreement agreement;
};

/// All agree if there are too few blocks to tell.
Agreement agreementOf(const BlockShifts& layout, const std::vector<BlockShift>& blocks, const AffineMotion& motion,
                      int width, int height);

/// The blocks with those that agree with a motion made unknown.
std::vector<BlockShift> withoutAgreeing(const BlockShifts& layout, std::vector<BlockShift> blocks,
                                        const AffineMotion& motion, int width, int height);

/// Whether there are enough blocks to speak of agreement.
bool enoughBlocks(const std::vector<BlockShift>& blocks);

/// The affine motion that the blocks share, with the largest closeness (random sample consensus: M. A. Fischler and R. C.
/// Bolles; its score: P. H. S. Torr and A. Zisserman). A near object that fills much of the view pulls a fit of all
/// pixels to its own motion; most blocks may still show the scene behind it. A count of agreeing blocks would prefer a motion between
/// those of two depths, which is nearly right for many blocks and right for none. The share is 0 if there is none.
SharedMotion findConsensus(const BlockShifts& layout, const std::vector<BlockShift>& blocks, int width, int height);

/// Two motions with one turn and zoom, such as those of a scene and of something near before it, that of more blocks first.
struct TwoMotions {
  AffineMotion motions[2];
  Agreement agreement;     // of each block with the nearer of both; share 0: there are no two
  double lesserShare = 0;  // of the blocks that agree with the second
};

/// The two that make the largest closeness. They are rough: a block tells the shift of each.
TwoMotions findTwoMotions(const BlockShifts& layout, const std::vector<BlockShift>& blocks, int width, int height);

}  // namespace movra::vision::detail
