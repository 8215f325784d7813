#include "vision/superresolution/BurstBadPixels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "vision/superresolution/detail/sensor/FaultTests.h"
#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/LocalMedian.h"
#include "vision/superresolution/detail/sensor/MotionSpread.h"
#include "vision/superresolution/detail/sensor/Outliers.h"

namespace movra::vision {

namespace {

using namespace detail;

constexpr double strictDistance = 1;
constexpr double leastDistance = 0.3;

bool before(const BadPixelFinding& a, const BadPixelFinding& b) {
  return std::pair(a.y, a.x) < std::pair(b.y, b.x);
}

// Whether the value is a whole number of 0 ... 255 after this scaling, within its rounding.
bool isStep(float value, float scale) {
  const float scaled = value * scale;
  const float whole = std::nearbyint(scaled);
  return whole >= 0 && whole <= 255 && std::abs(scaled - whole) <= (scale == 1 ? 0.0f : 2e-4f);
}

bool hasSteps(const FrameStack& frames, float scale) {
  for (int k = 0; k < frames.count; ++k) {
    for (std::size_t i = 0; i < frames.pixels(); ++i) {
      if (isMeasured(frames.frames[k][i]) && !isStep(frames.frames[k][i], scale)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace

const char* toString(PixelFault fault) {
  switch (fault) {
    case PixelFault::known:
      return "known";
    case PixelFault::flagged:
      return "flagged by the camera";
    case PixelFault::candidate:
      return "unlike its neighbours";
    case PixelFault::stuck:
      return "stuck";
    case PixelFault::offset:
      return "offset";
    case PixelFault::flickering:
      break;
  }
  return "flickering";
}

const char* toString(BadPixelSearch search) {
  switch (search) {
    case BadPixelSearch::notYet:
      return "candidates only: nothing has been compared with a prediction yet";
    case BadPixelSearch::done:
      return "searched";
    case BadPixelSearch::strict:
      return "searched with a stricter test, because the frames lie less than a pixel apart";
    case BadPixelSearch::tooLittleMotion:
      return "not searched, because the frames lie less than 0.3 pixels apart";
    case BadPixelSearch::tooFewFrames:
      return "not searched, because there is only one frame";
    case BadPixelSearch::eightBitData:
      break;
  }
  return "not searched, because 8-bit data have coarse steps and saturated edges that look like faults";
}

BurstBadPixels::BurstBadPixels(const FrameStack& frames) : width(frames.width), height(frames.height) {
  requireFrames(frames);
  bad.assign(frames.pixels(), 0);
  for (std::size_t i = 0; i < frames.pixels(); ++i) {
    int unmeasured = 0;
    for (int k = 0; k < frames.count; ++k) {
      unmeasured += isMeasured(frames.frames[k][i]) ? 0 : 1;
    }
    if (2 * unmeasured >= frames.count) {
      const auto w = static_cast<std::size_t>(width);
      fixed.push_back({static_cast<int>(i % w), static_cast<int>(i / w), PixelFault::flagged, 0});
    }
  }
  std::vector<BadPixelFinding> found;
  if (frames.count < 2) {
    state.search = BadPixelSearch::tooFewFrames;
  } else if (isEightBitData(frames)) {
    state.search = BadPixelSearch::eightBitData;
  } else {
    for (const Outlier& outlier : spatialOutliers(frames)) {
      const auto w = static_cast<std::size_t>(width);
      found.push_back(
          {static_cast<int>(outlier.pixel % w), static_cast<int>(outlier.pixel / w), PixelFault::candidate, 0});
    }
  }
  adopt(std::move(found));
}

void BurstBadPixels::addKnown(int x, int y) {
  if (x < 0 || y < 0 || x >= width || y >= height) {
    return;
  }
  fixed.push_back({x, y, PixelFault::known, 0});
  std::stable_sort(fixed.begin(), fixed.end(), before);
  adopt(std::move(state.pixels));
}

// Makes the map and the report of the fixed pixels and these others; of several findings for a pixel the first stays.
void BurstBadPixels::adopt(std::vector<BadPixelFinding> found) {
  std::vector<BadPixelFinding> all = fixed;
  all.insert(all.end(), found.begin(), found.end());
  std::stable_sort(all.begin(), all.end(), before);
  std::fill(bad.begin(), bad.end(), static_cast<unsigned char>(0));
  state.pixels.clear();
  for (const BadPixelFinding& finding : all) {
    unsigned char& mark = bad[static_cast<std::size_t>(finding.y) * static_cast<std::size_t>(width) +
                              static_cast<std::size_t>(finding.x)];
    if (mark == 0) {
      state.pixels.push_back(finding);
      mark = 1;
    }
  }
}

bool BurstBadPixels::leaveToScene(const FrameStack& frames, const std::vector<AffineMotion>& motions) {
  requireFrames(frames);
  if (frames.width != width || frames.height != height || motions.size() != static_cast<std::size_t>(frames.count)) {
    MOVRA_THROW("the frames have another size than those of the search's start, or not one motion each");
  }
  std::vector<BadPixelFinding> left;
  for (const BadPixelFinding& finding : state.pixels) {
    if (finding.fault == PixelFault::candidate && !movesWithScene(frames, motions, finding.x, finding.y)) {
      left.push_back(finding);
    }
  }
  const std::vector<unsigned char> previous = bad;
  adopt(std::move(left));
  return bad != previous;
}

bool BurstBadPixels::update(const FrameStack& frames, const FrameStack& residuals,
                            const std::vector<AffineMotion>& motions) {
  requireFrames(frames);
  requireFrames(residuals);
  requireSameShape(frames, residuals);
  if (frames.width != width || frames.height != height) {
    MOVRA_THROW("the frames have another size than those of the search's start");
  }
  if (motions.size() != static_cast<std::size_t>(frames.count)) {
    MOVRA_THROW("not as many motions as frames");
  }
  if (state.search == BadPixelSearch::tooFewFrames || state.search == BadPixelSearch::eightBitData) {
    return false;
  }
  const std::vector<unsigned char> previous = bad;
  state.medianDistance = medianDistance(motions);
  ++state.rounds;
  if (state.medianDistance < leastDistance) {
    state.search = BadPixelSearch::tooLittleMotion;
    adopt({});
  } else {
    const bool strict = state.medianDistance < strictDistance;
    state.search = strict ? BadPixelSearch::strict : BadPixelSearch::done;
    std::vector<BadPixelFinding> found = findFaults(frames, residuals, strict);
    found.erase(std::remove_if(found.begin(), found.end(),
                               [&](const BadPixelFinding& finding) {
                                 return finding.fault == PixelFault::flickering &&
                                        showsInOtherFrames(frames, motions, finding.x, finding.y);
                               }),
                found.end());
    adopt(std::move(found));
  }
  return bad != previous && state.rounds < mostRounds;
}

void BurstBadPixels::fill(float* frame) const {
  fillByLocalMedian(frame, width, height, bad.data());
}

bool BurstBadPixels::isEightBitData(const FrameStack& frames) {
  requireFrames(frames);
  return hasSteps(frames, 1) || hasSteps(frames, 255);
}

}  // namespace movra::vision
