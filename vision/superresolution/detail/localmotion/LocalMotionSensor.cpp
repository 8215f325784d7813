// What is wrong with the sensor, found in the burst itself: levels, bad pixels, fixed pattern.

#include <algorithm>
#include <cmath>

#include "vision/superresolution/FixedPattern.h"
#include "vision/superresolution/OffsetCorrection.h"
#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"

namespace movra::vision::detail {

namespace {

constexpr SolverEffort fitEffort{100, 5, 5, 0.007};  // faults stand out long before the image is sharp
constexpr int fitMargin = 6;
constexpr int manyTiles = 16;              // of which a part tells whether there is a pattern
constexpr float patternRelaxation = 1.5f;  // of such fits; larger ones overshoot
constexpr double motionPerTile = 0.25;     // pixels by which the shift may vary across a core of the fit
constexpr double smallestCore = 24;
constexpr double largestCore = 64;
constexpr std::size_t noticeableOf = 500;  // one in so many pixels: less does not change the motion
constexpr double littleDistance = 1.5;     // median between two frames, pixels
constexpr double certainOffset = 25;       // standard deviations of the noise
constexpr double noticeableSlope = 1;      // of a plane from end to end, in standard deviations of the noise

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
  std::vector<const float*> asGiven;
  for (const Frame& frame : frames) {
    asGiven.push_back(frame.given);
  }
  return BurstBadPixels::isEightBitData({asGiven.data(), count(), width, height});
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
    const auto place =
        static_cast<std::size_t>(finding.y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(finding.x);
    if (finding.fault != PixelFault::candidate && bad[place] != 0) {
      result.badPixelMap(finding.y, finding.x) = 1;
      ++result.badPixels;
    }
  }
}

/// Most candidates in a scene of fine detail are detail; it is taken back into the frames, so that fewer tiles need a fit.
void LocalMotionBurst::leaveCandidatesToScene() {
  const std::vector<std::size_t> aligned = alignedFrames();
  std::vector<const float*> measured;
  std::vector<AffineMotion> motions;
  for (const std::size_t k : aligned) {
    measured.push_back(frames[k].measured.data());
    motions.push_back(frames[k].field.affine());
  }
  const std::vector<unsigned char> before = bad;
  if (!search || !search->leaveToScene({measured.data(), static_cast<int>(aligned.size()), width, height}, motions)) {
    return;
  }
  adoptFindings();
  for (std::size_t i = 0; i < bad.size(); ++i) {
    for (Frame& frame : frames) {
      if (before[i] != 0 && bad[i] == 0 && !std::isnan(frame.measured[i])) {
        frame.good[i] = 1;
        changePixel(frame, i, frame.measured[i]);
      }
    }
  }
}

/// Fits tiles with candidates for bad pixels, and a sample of the others. True if that shows a pattern, for which all are
/// needed.
bool LocalMotionBurst::fitWhereNeeded(TiledReconstruction& tiles, const SolverBurst& burst,
                                      const LocalMotionOptions& options, const JobRunner& run,
                                      const std::vector<AffineMotion>& motions,
                                      std::vector<std::vector<float>>& residuals, PatternAverage& nothing) {
  std::vector<std::size_t> candidates;
  for (std::size_t i = 0; i < bad.size(); ++i) {
    if (bad[i] != 0 && (listedBad.empty() || listedBad[i] == 0)) {
      candidates.push_back(i);
    }
  }
  tiles.fitSome(burst, fitEffort, run, candidates, residuals);
  if (!options.correctPattern) {
    return false;
  }
  std::vector<const float*> left;
  for (const std::size_t k : alignedFrames()) {
    left.push_back(residuals[k].data());
  }
  FixedPattern probe(width, height);
  probe.add({left.data(), static_cast<int>(left.size()), width, height}, motions, bad.empty() ? nullptr : bad.data());
  if (probe.report().outcome == PatternOutcome::nothingFound) {
    const std::vector<float> zeros(bad.size(), 0.0f);
    nothing = {width, height, zeros, std::vector<float>(bad.size(), static_cast<float>(left.size()))};
  }
  return probe.report().outcome == PatternOutcome::found;
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
  pattern.setRelaxation(patternRelaxation);
  const double core = std::clamp(motionPerTile / std::max(steepestMotion(), 1e-9), smallestCore, largestCore);
  TiledReconstruction tiles(width, height, static_cast<int>(core), fitMargin,
                            2 * count());  // each may show two motions
  TiledReconstruction::Residuals residuals;
  std::vector<std::size_t> changed;
  bool fitAll = true;
  bool seeksPattern = true;
  bool foundPattern = false;
  Faults faults;
  const int rounds = mostRounds(options.preset);
  for (int round = 0; round < rounds; ++round) {
    const SolverBurst burst = solverBurst(options);
    if (burst.referenceDeviation == 0) {
      return faults;
    }
    if (round == 0 && tiles.tileCount() >= manyTiles && knownPattern.empty()) {
      fitAll = seeksPattern = fitWhereNeeded(tiles, burst, options, run, motions, residuals, result.patternAverage);
    }
    if (fitAll) {
      tiles.fit(burst, fitEffort, run, residuals);
    } else if (round > 0) {
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
    std::size_t disturbing = 0;  // pixels that were not masked
    changed.clear();
    for (std::size_t i = 0; i < bad.size(); ++i) {
      const bool was = !fitted.empty() && fitted[i] != 0;
      if ((bad[i] != 0) != was) {
        changed.push_back(i);
        disturbing += was ? 0 : 1;
      }
    }
    fitAll = false;
    if (options.correctPattern && seeksPattern) {
      const std::vector<float>& step = pattern.add(residualStack, motions, bad.empty() ? nullptr : bad.data());
      if (pattern.report().grew) {
        fitAll = true;
        run(count(),
            [&](int k) { FixedPattern::removeFrom(frames[static_cast<std::size_t>(k)].measured.data(), step); });
      }
    }
    const std::size_t noticeable = bad.size() / noticeableOf;
    foundPattern = foundPattern || fitAll;
    faults.changedFrames = faults.changedFrames || fitAll || changed.size() > noticeable;
    faults.disturbedMotion = faults.disturbedMotion || fitAll || disturbing > noticeable;
    run(count(), [&](int k) {
      const auto i = static_cast<std::size_t>(k);
      fillWithPrediction(frames[i], residuals[i], !fitAll);
    });
    if (disturbing == 0 && !fitAll) {
      break;
    }
    if (fitAll && round + 1 < rounds) {
      blur(run);  // a pattern draws the motion to itself
      findMotion(options, run, false);
      markTrusted(options, run);
    }
  }
  reportFindings(result);
  result.pattern = pattern.report().strength;
  if (seeksPattern) {
    result.patternAverage = pattern.average(knownPattern);
  }
  if (foundPattern) {
    blur(run);
  }
  return faults;
}

/// The prediction is a better filling than the neighbours: what is found wrongly lies on fine detail.
void LocalMotionBurst::fillWithPrediction(Frame& frame, const std::vector<float>& residual, bool showsPyramid) const {
  const std::vector<float> before = frame.pixels;
  fill(frame);
  for (std::size_t i = 0; i < frame.good.size(); ++i) {
    const float prediction = frame.measured[i] - residual[i];
    if (frame.good[i] == 0 && std::isfinite(prediction)) {
      frame.pixels[i] = prediction;
    }
  }
  for (std::size_t i = 0; i < before.size() && showsPyramid; ++i) {
    if (frame.pixels[i] != before[i]) {
      const float now = frame.pixels[i];
      frame.pixels[i] = before[i];
      changePixel(frame, i, now);
    }
  }
}

/// Gives a pixel another value, which the blurred frame takes over: masks see what candidates hid that are none.
void LocalMotionBurst::changePixel(Frame& frame, std::size_t pixel, float value) const {
  const auto w = static_cast<std::size_t>(width);
  if (frame.pyramid) {
    frame.pyramid->change(static_cast<int>(pixel % w), static_cast<int>(pixel / w), value - frame.pixels[pixel]);
  }
  frame.pixels[pixel] = value;
}

}  // namespace movra::vision::detail
