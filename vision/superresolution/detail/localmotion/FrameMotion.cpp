#include "vision/superresolution/detail/localmotion/FrameMotion.h"

#include <algorithm>

#include "vision/superresolution/detail/localmotion/LayerSplit.h"
#include "vision/superresolution/detail/localmotion/MotionConsensus.h"

namespace movra::vision::detail {

namespace {

// Shares of the blocks that agree with a motion.
constexpr double fullAgreement = 0.9;
constexpr double littleAgreement = 0.6;
constexpr double leastLayer = 0.08;  // with the lesser of two motions

// What another motion must gain over one of all pixels, which is finer: in share or closeness.
constexpr double moreBlocks = 0.03;
constexpr double closer = 0.1;
constexpr double muchCloser = 0.1;  // closeness that two motions must gain over one

constexpr int separationRounds = 4;

double knownBlocks(const std::vector<BlockShift>& blocks) {
  return static_cast<double>(std::count_if(blocks.begin(), blocks.end(), [](const BlockShift& b) { return b.known; }));
}

}  // namespace

FrameMotionSearch::FrameMotionSearch(const MotionFrame& givenReference, double noise)
    : reference(givenReference),
      width(givenReference.pyramid->level(0).values.width()),
      height(givenReference.pyramid->level(0).values.height()),
      estimation(givenReference),
      blocks(givenReference, estimation.finest(), noise) {}

FrameMotion FrameMotionSearch::find(const MotionFrame& frame, const AffineMotion& start, bool isRough) const {
  AffineMotion motion = estimation.estimate(frame, start, isRough ? estimation.coarsestLevel() : 0);
  std::vector<BlockShift> shifts = blocks.measure(frame, motion);
  Agreement agreement = agreementOf(blocks, shifts, motion, width, height);
  if (agreement.share < fullAgreement) {
    // Most blocks may share another motion: that of the scene behind something near, or the one around the start.
    const auto tryBlocks = [&](const std::vector<BlockShift>& measured) {
      const SharedMotion shared = findConsensus(blocks, measured, width, height);
      if (shared.agreement.share > agreement.share + moreBlocks ||
          shared.agreement.closeness > agreement.closeness + closer) {
        agreement = shared.agreement;
        motion = shared.motion;
        shifts = measured;
      }
    };
    tryBlocks(shifts);
    if (agreement.share < littleAgreement) {
      tryBlocks(blocks.measure(frame, start));
    }
  }
  FrameMotion result;
  if (agreement.share < fullAgreement) {
    TwoMotions two = findTwoMotions(blocks, shifts, width, height);
    if (two.agreement.closeness > agreement.closeness + muchCloser && two.lesserShare > leastLayer) {
      separate(frame, two.motions);
      motion = two.motions[0];
      result.others.emplace_back(two.motions[1], width, height);
      shifts = blocks.measure(frame, motion);
      agreement = agreementOf(blocks, shifts, motion, width, height);
    }
  }
  result.agreement = agreement.share;
  if (!result.others.empty()) {
    const AffineMotion& other = result.others.front().affine();
    const std::vector<BlockShift> rest = withoutAgreeing(blocks, shifts, motion, width, height);
    const std::vector<BlockShift> left = withoutAgreeing(blocks, rest, other, width, height);
    const double known = knownBlocks(shifts);
    result.agreement = known > 0 ? 1 - knownBlocks(left) / known : 1;
    // Blocks that see both motions tell a shift between them, which is right for neither.
    for (std::size_t i = 0; i < shifts.size(); ++i) {
      shifts[i].known = shifts[i].known && !rest[i].known;
    }
  }
  result.field = MotionField(motion, width, height, blocks, shifts);
  return result;
}

void FrameMotionSearch::separate(const MotionFrame& frame, AffineMotion (&motions)[2]) const {
  std::vector<char> where[2];
  for (int round = 0; round < separationRounds; ++round) {
    const MotionField fields[2] = {{motions[0], width, height}, {motions[1], width, height}};
    splitIntoLayers(reference, frame, {{&fields[0], &where[0]}, {&fields[1], &where[1]}});
    for (int i = 0; i < 2; ++i) {
      motions[i] = estimation.estimate(frame, motions[i], 0, where[i].data());
    }
  }
}

}  // namespace movra::vision::detail
