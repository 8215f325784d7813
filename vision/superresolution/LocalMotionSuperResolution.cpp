#include "vision/superresolution/LocalMotionSuperResolution.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "movra/Exception.h"
#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"

namespace movra::vision {

namespace {

constexpr int smallestSide = 8;
constexpr int largestSide = 16384;

void require(bool holds, const char* text) {
  if (!holds) {
    MOVRA_THROW(text);
  }
}

bool isWithin(double value, double low, double high) {
  return value >= low && value <= high;
}

void checkOptions(const LocalMotionOptions& o) {
  require(o.reference >= LocalMotionOptions::bestReference, "reference is neither a frame nor bestReference");
  require(o.frames >= LocalMotionOptions::allFrames,
          "frames is neither a number of frames, automaticFrames nor allFrames");
  require(o.lowestValid < o.highestValid, "lowestValid is not below highestValid");
  require(isWithin(o.psfSigma, 0.3, 2), "psfSigma is not within 0.3 ... 2");
  require(o.solverSigma == 0 || isWithin(o.solverSigma, 0.14, 2), "solverSigma is not within 0.14 ... 2");
  require(o.weightTV == 0 || isWithin(o.weightTV, 1, 10000), "weightTV is not within 1 ... 10000");
  require(o.iterations == 0 || isWithin(o.iterations, 1, 1000), "iterations is not within 1 ... 1000");
  require(o.relativeResidue == 0 || isWithin(o.relativeResidue, 1e-6, 1), "relativeResidue is not within 1e-6 ... 1");
  require(o.tileCore == 0 || isWithin(o.tileCore, 8, 4096), "tileCore is not within 8 ... 4096");
  require(o.alignmentError == 0 || isWithin(o.alignmentError, 0.05, 10), "alignmentError is not within 0.05 ... 10");
  require(isWithin(o.leastAgreement, 0, 1), "leastAgreement is not within 0 ... 1");
}

}  // namespace

const char* toString(LocalMotionStatus status) {
  switch (status) {
    case LocalMotionStatus::done:
      return "the frames were joined into one image";
    case LocalMotionStatus::singleFrame:
      return "there is one frame: the image is its deconvolved enlargement";
    case LocalMotionStatus::referenceAlone:
      return "no frame could be aligned with the reference: the image is the reference's deconvolved enlargement";
    case LocalMotionStatus::structureless:
      return "the reference has one value throughout, and so has the image";
    case LocalMotionStatus::noFrames:
      return "there is no frame";
    case LocalMotionStatus::noValidPixels:
      return "the reference has no valid pixel";
    case LocalMotionStatus::cancelled:
      return "the reconstruction was cancelled";
  }
  return "unknown status";
}

const char* toString(FrameUse use) {
  switch (use) {
    case FrameUse::used:
      return "used";
    case FrameUse::noValidPixels:
      return "left out: no valid pixel";
    case FrameUse::notAligned:
      return "left out: no motion aligns it with the reference";
    case FrameUse::fewAgreeing:
      return "left out: too few of its blocks agree with one motion";
    case FrameUse::spare:
      return "not needed: others complement each other better";
    case FrameUse::lowCoverage:
      return "left out: too few of its pixels can be trusted";
    case FrameUse::largeShift:
      return "left out: it lies too far from the reference";
    case FrameUse::largeResidual:
      return "left out: it differs too much from what the other frames predict";
  }
  return "unknown use";
}

LocalMotionSuperResolution::LocalMotionSuperResolution(int w, int h, const LocalMotionOptions& givenOptions)
    : width(w), height(h), options(givenOptions) {
  require(isWithin(w, smallestSide, largestSide), "width is not within 8 ... 16384");
  require(isWithin(h, smallestSide, largestSide), "height is not within 8 ... 16384");
  checkOptions(options);
  burst = std::make_unique<detail::LocalMotionBurst>(width, height);
}

LocalMotionSuperResolution::~LocalMotionSuperResolution() = default;

void LocalMotionSuperResolution::addFrame(const float* frame) {
  require(frame != nullptr, "the frame is null");
  burst->add(frame);
}

void LocalMotionSuperResolution::clearFrames() {
  burst->clear();
}

int LocalMotionSuperResolution::frameCount() const {
  return burst->givenCount();
}

void LocalMotionSuperResolution::setBadPixels(const unsigned char* map) {
  burst->setBadPixels(map);
}

void LocalMotionSuperResolution::setKnownPattern(const float* pattern) {
  std::vector<float> known;
  if (pattern != nullptr) {
    known.assign(pattern, pattern + static_cast<std::ptrdiff_t>(width) * height);
  }
  require(std::all_of(known.begin(), known.end(), [](float value) { return std::isfinite(value); }),
          "the known pattern has values that are not finite");
  burst->setKnownPattern(std::move(known));
}

void LocalMotionSuperResolution::setMotions(const std::vector<AffineMotion>& motions) {
  constexpr double mostChange = 0.5;
  for (const AffineMotion& m : motions) {
    require(isWithin(m.x, -width, width) && isWithin(m.y, -height, height), "a motion shifts by more than the frame");
    require(isWithin(m.xx - 1, -mostChange, mostChange) && isWithin(m.xy, -mostChange, mostChange) &&
                isWithin(m.yx, -mostChange, mostChange) && isWithin(m.yy - 1, -mostChange, mostChange) &&
                m.xx * m.yy - m.xy * m.yx >= 0.25,
            "a motion turns or scales too far");
  }
  burst->setMotions(motions);
}

LocalMotionResult LocalMotionSuperResolution::computeSR() {
  return run(false);
}

LocalMotionResult LocalMotionSuperResolution::registerFrames() {
  return run(true);
}

LocalMotionResult LocalMotionSuperResolution::run(bool registrationOnly) {
  require(options.reference < std::max(1, burst->givenCount()), "the reference is not one of the frames");
  require(burst->hasMotionPerFrame(), "there are not as many motions as frames");
  return burst->reconstruct(options, registrationOnly);
}

}  // namespace movra::vision
