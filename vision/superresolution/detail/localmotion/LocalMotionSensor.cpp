// What is wrong with the sensor, found in the burst itself: levels, bad pixels, fixed pattern.

#include <algorithm>
#include <cmath>

#include "vision/superresolution/FixedPattern.h"
#include "vision/superresolution/OffsetCorrection.h"
#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"

namespace movra::vision::detail {

namespace {

constexpr SolverEffort fitEffort{400, 12, 0.002};
constexpr int fitMargin = 6;
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

/// Marks pixels that differ from their neighbours in most frames as bad until the fits have decided.
void LocalMotionBurst::findCandidates(const LocalMotionOptions& options) {
  search.reset();
  if (!options.findBadPixels || count() < 2) {
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

/// Fits the image without the bad pixels, decides by the residuals which pixels are bad and what the pattern is, and again.
bool LocalMotionBurst::findFaults(const LocalMotionOptions& options, int core, const JobRunner& run,
                                  LocalMotionResult& result) {
  const std::vector<std::size_t> aligned = alignedFrames();
  if (aligned.size() < 2 || (!search && !options.correctPattern)) {
    return false;
  }
  std::vector<AffineMotion> motions;
  for (const std::size_t k : aligned) {
    motions.push_back(frames[k].field.affine());
    frames[k].trusted.assign(frames[k].pixels.size(), 1);
  }
  const std::vector<unsigned char> before = bad;
  FixedPattern pattern(width, height);
  TiledReconstruction tiles(width, height, core, fitMargin, count());
  const int rounds = mostRounds(options.preset);
  bool patternFound = false;
  for (int round = 0; round < rounds; ++round) {
    const SolverBurst burst = solverBurst(options);
    if (burst.referenceDeviation == 0) {
      return false;
    }
    std::vector<std::vector<float>> residuals;
    tiles.fit(burst, fitEffort, run, false, residuals);
    std::vector<const float*> measured, left;
    for (const std::size_t k : aligned) {
      Frame& frame = frames[k];
      for (std::size_t i = 0; i < frame.good.size(); ++i) {
        if (frame.good[i] == 0) {  // what was measured there, not what was filled in
          residuals[k][i] += frame.measured[i] - frame.pixels[i];
        }
      }
      measured.push_back(frame.measured.data());
      left.push_back(residuals[k].data());
    }
    const auto used = static_cast<int>(aligned.size());
    const FrameStack residualStack{left.data(), used, width, height};
    bool again = false;
    if (search) {
      again = search->update({measured.data(), used, width, height}, residualStack, motions);
      adoptFindings();
    }
    if (options.correctPattern) {
      const std::vector<float>& step = pattern.add(residualStack, motions, bad.empty() ? nullptr : bad.data());
      if (pattern.report().outcome == PatternOutcome::found) {
        patternFound = true;
        again = true;
        for (Frame& frame : frames) {
          FixedPattern::removeFrom(frame.measured.data(), step);
        }
      }
    }
    run(count(), [&](int k) {
      Frame& frame = frames[static_cast<std::size_t>(k)];
      fill(frame);
      // The prediction is a better filling than the neighbours: what is found wrongly lies on fine detail.
      for (std::size_t i = 0; i < frame.good.size(); ++i) {
        const float prediction = frame.measured[i] - residuals[static_cast<std::size_t>(k)][i];
        if (frame.good[i] == 0 && std::isfinite(prediction)) {
          frame.pixels[i] = prediction;
        }
      }
    });
    if (!again) {
      break;
    }
  }
  if (search) {
    for (const BadPixelFinding& finding : search->report().pixels) {
      result.badPixels += finding.fault != PixelFault::known && finding.fault != PixelFault::flagged ? 1 : 0;
    }
  }
  result.pattern = pattern.report().strength;
  return patternFound || bad != before;
}

}  // namespace movra::vision::detail
