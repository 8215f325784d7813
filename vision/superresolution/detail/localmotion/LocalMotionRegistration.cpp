// How the frames lie against the reference, and where they can be trusted.

#include <algorithm>

#include "vision/superresolution/detail/localmotion/FrameMotion.h"
#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"
#include "vision/superresolution/detail/localmotion/MotionBetween.h"
#include "vision/superresolution/detail/localmotion/TrustMasks.h"
#include "vision/superresolution/detail/localmotion/WholePixelSearch.h"

namespace movra::vision::detail {

namespace {

constexpr double usualMisalignment = 0.5;   // pixels
constexpr double localMisalignment = 0.12;  // with local motion: the field is wrong on both sides of a step in depth

}  // namespace

void LocalMotionBurst::findMotion(const LocalMotionOptions& options, const JobRunner& run, bool search) {
  const MotionFrame ref = frames[static_cast<std::size_t>(reference)].forMotion();
  const FrameMotionSearch motionSearch(ref, noise);
  run(count(), [&](int k) {
    Frame& frame = frames[static_cast<std::size_t>(k)];
    frame.others.clear();
    if (k == reference || frame.use == FrameUse::noValidPixels) {
      frame.field = MotionField({}, width, height);
      return;
    }
    if (!takenMotions.empty()) {
      frame.field = MotionField(
          motionBetween(takenMotions[static_cast<std::size_t>(reference)], takenMotions[static_cast<std::size_t>(k)]),
          width, height);
      return;
    }
    const AffineMotion start = search ? searchShift(*ref.pyramid, *frame.pyramid) : frame.field.affine();
    FrameMotion found = motionSearch.find(frame.forMotion(), start, search);
    frame.field = std::move(found.field);
    for (MotionField& field : found.others) {
      frame.others.push_back({std::move(field), {}});
    }
    frame.agreement = found.agreement;
    frame.use = FrameUse::used;
  });
  leaveOutBadFrames(options);
}

double LocalMotionBurst::steepestMotion() const {
  double steepest = 0;
  for (const Frame& frame : frames) {
    if (frame.use == FrameUse::used) {
      steepest = std::max(steepest, frame.field.steepest());
      for (const Layer& other : frame.others) {
        steepest = std::max(steepest, other.field.steepest());
      }
    }
  }
  return steepest;
}

void LocalMotionBurst::markTrusted(const LocalMotionOptions& options, const JobRunner& run) {
  const auto misalignmentOf = [&](const Frame& frame) {
    return options.alignmentError > 0                       ? options.alignmentError
           : frame.field.isAffine() && frame.others.empty() ? usualMisalignment
                                                            : localMisalignment;
  };
  const TrustMasks masks(frames[static_cast<std::size_t>(reference)].forMotion(), noise);
  run(count(), [&](int k) {
    Frame& frame = frames[static_cast<std::size_t>(k)];
    if (k == reference) {
      frame.trusted.assign(frame.pixels.size(), 1);
    } else if (frame.use == FrameUse::used) {
      std::vector<MotionLayer> layers{{&frame.field, &frame.trusted}};
      for (Layer& other : frame.others) {
        layers.push_back({&other.field, &other.trusted});
      }
      masks.mark(frame.forMotion(), layers, misalignmentOf(frame));
      const auto trusted = std::count(frame.trusted.begin(), frame.trusted.end(), 1);
      frame.coverage = static_cast<double>(trusted) / static_cast<double>(frame.trusted.size());
    } else {
      frame.trusted.clear();
    }
  });
  leaveOutBadFrames(options);
}

}  // namespace movra::vision::detail
