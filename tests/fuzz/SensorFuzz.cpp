// The steps from the sensor to the solver: frames, residuals and motions of any content.
#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/BurstBadPixels.h"
#include "vision/superresolution/EdgePsf.h"
#include "vision/superresolution/FixedPattern.h"
#include "vision/superresolution/FrameSelection.h"
#include "vision/superresolution/NoiseEstimate.h"

namespace {

/// Frames, and the array of pointers that a stack wants.
struct Stack {
  std::vector<std::vector<float>> frames;
  std::vector<const float*> pointers;

  Stack(FuzzInput& input, int count, int width, int height) {
    for (int i = 0; i < count; ++i) {
      frames.push_back(input.frame(width, height));
    }
    for (const std::vector<float>& frame : frames) {
      pointers.push_back(frame.data());
    }
  }
};

std::vector<AffineMotion> anyMotions(FuzzInput& input, int count) {
  std::vector<AffineMotion> motions(static_cast<std::size_t>(count));
  for (AffineMotion& motion : motions) {
    motion.x = input.between(-64, 64) / 16.0;
    motion.y = input.between(-64, 64) / 16.0;
    if (input.upTo(7) == 0) {
      motion.xx = static_cast<double>(input.number());
      motion.x = static_cast<double>(input.number());
    }
  }
  return motions;
}

void select(FuzzInput& input, int height) {
  std::vector<FrameQuality> qualities(static_cast<std::size_t>(input.upTo(12)));
  for (FrameQuality& quality : qualities) {
    quality.motion = anyMotions(input, 1)[0];
    quality.registered = input.upTo(7) > 0;
    if (input.upTo(3) == 0) {
      quality.agreement = static_cast<double>(input.number());
      quality.coverage = static_cast<double>(input.number());
      quality.residual = static_cast<double>(input.number());
    }
  }
  FrameSelection selection;
  selection.setReference(input.upTo(3) > 0 ? -1 : input.between(-2, 12));
  accepts([&] {
    selection.setCount(input.between(-2, 12));
    const FrameSelectionReport report = selection.select(qualities, height, static_cast<double>(input.number()));
    require(report.verdicts.size() == qualities.size(), "each frame has a verdict");
    for (const int frame : report.taken) {
      require(frame >= 0 && frame < static_cast<int>(qualities.size()), "frames that there are are taken");
    }
  });
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  const int width = input.between(1, 32);
  const int height = input.between(1, 32);
  const int count = input.upTo(6);
  const Stack frames(input, count, width, height);
  const Stack residuals(input, count, width, height);
  const FrameStack frameStack{frames.pointers.data(), count, width, height};
  const FrameStack residualStack{residuals.pointers.data(), count, width, height};
  const std::vector<AffineMotion> motions = anyMotions(input, count);
  accepts([&] {
    BurstBadPixels search(frameStack);
    search.addKnown(input.between(-2, 40), input.between(-2, 40));
    for (int round = input.upTo(4); round > 0; --round) {
      search.update(frameStack, residualStack, motions);
    }
    require(search.map().size() == frameStack.pixels(), "the map has a byte per pixel");
    std::vector<float> frame = frames.frames[0];
    search.fill(frame.data());
    NoiseEstimate::ofFrames(frameStack);
    const NoiseReport noise = NoiseEstimate::ofResiduals(frameStack, input.between(-1, 6), residualStack);
    require(noise.weightTV >= NoiseEstimate::smallestWeightTV && noise.weightTV <= NoiseEstimate::largestWeightTV,
            "the weight lies in its range");
    EdgePsf::measure(frame.data(), width, height);
  });
  FixedPattern pattern(width, height);
  for (int round = count == 0 ? 0 : input.upTo(3); round > 0; --round) {
    for (const float value : pattern.add(residualStack, motions, nullptr)) {
      require(std::isfinite(value), "what is subtracted is finite");
    }
  }
  PatternAverage average = pattern.average({});
  PatternAverage other = average;
  other.weights.assign(other.weights.size(), input.number());
  other.sums.assign(other.sums.size(), input.number());
  average.merge(other);
  average.mean();
  select(input, height);
}
