// What is wrong with the sensor, found in the burst itself: levels, bad pixels, fixed pattern.

#include <algorithm>
#include <cmath>

#include "vision/superresolution/FixedPattern.h"
#include "vision/superresolution/OffsetCorrection.h"
#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"

namespace movra::vision::detail {

namespace {

constexpr SolverEffort fitEffort{400, 5, 5, 0.007};  // faults stand out long before the image is sharp
constexpr int fitMargin = 6;
constexpr double motionPerTile = 0.25;  // pixels by which the shift may vary across a core of the fit
constexpr double smallestCore = 24;
constexpr double largestCore = 64;
constexpr double littleDistance = 1.5;  // median between two frames, pixels
constexpr double certainOffset = 25;    // standard deviations of the noise
constexpr double noticeableSlope = 1;   // of a plane from end to end, in standard deviations of the noise

int mostRounds(LocalMotionPreset preset) {
  return preset == LocalMotionPreset::fast ? 1 : preset == LocalMotionPreset::standard ? 2 : 3;
}

}  // namespace

std::vector<std::size_t> LocalMotionBurst::alignedFrames() const {
  std::vector<std::size_t> aligned;
  for (std::size_t k = 0; k < frames.size(); ++k) {
    if (frames[k].use == FrameUse::used) {
      aligned.push_back(k);
    }
  }
  return aligned;
}

/// What is invalid in many frames is left to the frames: in the others it may be good. With little motion, fine detail looks
/// like a small offset of the pixel that it lies on.
void LocalMotionBurst::adoptFindings() {
  bad = listedBad;
  bad.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0);
  const bool littleMotion =
      search->report().search != BadPixelSearch::notYet && search->report().medianDistance < littleDistance;
  for (const BadPixelFinding& finding : search->report().pixels) {
    const bool doubtful =
        littleMotion && finding.fault == PixelFault::offset && std::abs(finding.deviation) < certainOffset * noise;
    if (finding.fault != PixelFault::flagged && !doubtful) {
      bad[static_cast<std::size_t>(finding.y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(finding.x)] =
          1;
    }
  }
}

/// Coarse steps are no longer to be seen when a pattern has been subtracted.
bool LocalMotionBurst::isVideo() const {
  std::vector<const float*> given;
  for (const Frame& frame : frames) {
    given.push_back(frame.given.data());
  }
  return BurstBadPixels::isEightBitData({given.data(), count(), width, height});
}

/// Marks pixels that differ from their neighbours in most frames as bad until the fits have decided.
void LocalMotionBurst::findCandidates(const LocalMotionOptions& options) {
  search.reset();
  if (!options.findBadPixels || count() < 2 || (!knownPattern.empty() && isVideo())) {
    return;
  }
  std::vector<const float*> measured;
  for (const Frame& frame : frames) {
    measured.push_back(frame.measured.data());
  }
  search = std::make_unique<BurstBadPixels>(FrameStack{measured.data(), count(), width, height});
  for (std::size_t i = 0; i < listedBad.size(); ++i) {
    if (listedBad[i] != 0) {
      search->addKnown(static_cast<int>(i % static_cast<std::size_t>(width)),
                       static_cast<int>(i / static_cast<std::size_t>(width)));
    }
  }
  adoptFindings();
}

/// Takes planes out that the aligned frames differ from the reference by. True if one of them is more than a level.
bool LocalMotionBurst::takeOutPlanes(const JobRunner& run) {
  const std::vector<std::size_t> aligned = alignedFrames();
  std::vector<char> tilted(frames.size(), 0);
  run(static_cast<int>(aligned.size()), [&](int job) {
    const std::size_t k = aligned[static_cast<std::size_t>(job)];
    if (static_cast<int>(k) == reference) {
      return;
    }
    Frame& frame = frames[k];
    const float* const pair[] = {frames[static_cast<std::size_t>(reference)].pixels.data(), frame.pixels.data()};
    const FrameOffset plane =
        OffsetCorrection().planes({pair, 2, width, height}, 0, {AffineMotion{}, frame.field.affine()}).back();
    plane.removeFrom(frame.measured.data(), width, height);
    plane.removeFrom(frame.pixels.data(), width, height);
    frame.offset += plane.offset;
    tilted[k] = std::max(std::abs(plane.slopeX), std::abs(plane.slopeY)) > noticeableSlope * noise;
  });
  return std::find(tilted.begin(), tilted.end(), 1) != tilted.end();
}

void LocalMotionBurst::reportFindings(LocalMotionResult& result) const {
  result.badPixelMap.create(height, width);
  result.badPixelMap.setTo(0);
  if (!search) {
    return;
  }
  for (const BadPixelFinding& finding : search->report().pixels) {
    if (finding.fault == PixelFault::known || finding.fault == PixelFault::flagged) {
      continue;
    }
    ++result.badPixels;
    const auto place =
        static_cast<std::size_t>(finding.y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(finding.x);
    if (finding.fault != PixelFault::candidate && bad[place] != 0) {
      result.badPixelMap(finding.y, finding.x) = 1;
    }
  }
}

/// Fits the image without the bad pixels, decides by the residuals which pixels are bad and what the pattern is, and again
/// where what was found had disturbed the fit.
LocalMotionBurst::Faults LocalMotionBurst::findFaults(const LocalMotionOptions& options, const JobRunner& run,
                                                      LocalMotionResult& result) {
  const std::vector<std::size_t> aligned = alignedFrames();
  if (aligned.size() < 2 || (!search && !options.correctPattern)) {
    return {};
  }
  std::vector<AffineMotion> motions;
  for (const std::size_t k : aligned) {
    motions.push_back(frames[k].field.affine());
  }
  FixedPattern pattern(width, height);
  const double core = std::clamp(motionPerTile / std::max(steepestMotion(), 1e-9), smallestCore, largestCore);
  TiledReconstruction tiles(width, height, static_cast<int>(core), fitMargin, viewCount());
  TiledReconstruction::Residuals residuals;
  std::vector<std::size_t> changed;
  bool fitAll = true;
  Faults faults;
  const int rounds = mostRounds(options.preset);
  for (int round = 0; round < rounds; ++round) {
    const SolverBurst burst = solverBurst(options);
    if (burst.referenceDeviation == 0) {
      return faults;
    }
    if (fitAll) {
      tiles.fit(burst, fitEffort, run, residuals);
    } else {
      tiles.fitAgain(burst, fitEffort, run, changed, residuals);
    }
    std::vector<const float*> measured, left;
    for (const std::size_t k : aligned) {
      measured.push_back(frames[k].measured.data());
      left.push_back(residuals[k].data());
    }
    const auto used = static_cast<int>(aligned.size());
    const FrameStack residualStack{left.data(), used, width, height};
    const std::vector<unsigned char> fitted = bad;
    if (search) {
      search->update({measured.data(), used, width, height}, residualStack, motions);
      adoptFindings();
    }
    bool disturbed = false;  // by a pixel that was not masked
    changed.clear();
    for (std::size_t i = 0; i < bad.size(); ++i) {
      const bool was = !fitted.empty() && fitted[i] != 0;
      if ((bad[i] != 0) != was) {
        changed.push_back(i);
        disturbed = disturbed || !was;
      }
    }
    fitAll = false;
    if (options.correctPattern) {
      const std::vector<float>& step = pattern.add(residualStack, motions, bad.empty() ? nullptr : bad.data());
      if (pattern.report().outcome == PatternOutcome::found) {
        fitAll = true;
        run(count(),
            [&](int k) { FixedPattern::removeFrom(frames[static_cast<std::size_t>(k)].measured.data(), step); });
      }
    }
    faults.changedFrames = faults.changedFrames || fitAll || !changed.empty();
    faults.disturbedMotion = faults.disturbedMotion || fitAll || disturbed;
    run(count(), [&](int k) {
      const auto i = static_cast<std::size_t>(k);
      fillWithPrediction(frames[i], residuals[i]);
    });
    if (!disturbed && !fitAll) {
      break;
    }
  }
  reportFindings(result);
  result.pattern = pattern.report().strength;
  result.patternAverage = pattern.average(knownPattern);
  if (faults.changedFrames) {
    blur(run);  // masks see what candidates hid that are none
  }
  return faults;
}

/// The prediction is a better filling than the neighbours: what is found wrongly lies on fine detail.
void LocalMotionBurst::fillWithPrediction(Frame& frame, const std::vector<float>& residual) const {
  fill(frame);
  for (std::size_t i = 0; i < frame.good.size(); ++i) {
    const float prediction = frame.measured[i] - residual[i];
    if (frame.good[i] == 0 && std::isfinite(prediction)) {
      frame.pixels[i] = prediction;
    }
  }
}

}  // namespace movra::vision::detail
