#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "vision/superresolution/BurstBadPixels.h"
#include "vision/superresolution/LocalMotionOptions.h"
#include "vision/superresolution/LocalMotionResult.h"
#include "vision/superresolution/NoiseEstimate.h"
#include "vision/superresolution/detail/localmotion/AffineEstimation.h"
#include "vision/superresolution/detail/localmotion/MotionField.h"
#include "vision/superresolution/detail/localmotion/TiledReconstruction.h"

namespace movra::vision::detail {

/// The frames of a burst on their way from the sensor to the solver.
class LocalMotionBurst {
 public:
  LocalMotionBurst(int width, int height) : width(width), height(height) {}

  void add(const float* frame);
  void clear() { frames.clear(); }
  int count() const { return static_cast<int>(frames.size()); }
  void setBadPixels(const unsigned char* map);
  void setKnownPattern(std::vector<float> pattern) { knownPattern = std::move(pattern); }
  void setMotions(std::vector<AffineMotion> motions) { knownMotions = std::move(motions); }
  bool hasMotionPerFrame() const { return knownMotions.empty() || knownMotions.size() == frames.size(); }

  LocalMotionResult reconstruct(const LocalMotionOptions& options, bool registrationOnly);

 private:
  /// Another motion that a frame shows, such as that of something near, and where.
  struct Layer {
    MotionField field;
    std::vector<char> trusted;
  };

  /// What the search for faults has changed.
  struct Faults {
    bool changedFrames = false;
    bool disturbedMotion = false;
  };

  struct Frame {
    std::vector<float> given;
    std::vector<float> measured;  // offset and pattern taken out, NaN where not valid
    std::vector<float> pixels;    // the same, bad and unmeasured ones filled
    std::vector<char> good;
    std::vector<unsigned char> usable;
    std::vector<char> trusted;
    std::unique_ptr<BlurredPyramid> pyramid;
    MotionField field;
    std::vector<Layer> others;
    double offset = 0;
    double agreement = 1;
    FrameUse use = FrameUse::used;

    MotionFrame forMotion() const { return {pyramid.get(), usable.empty() ? nullptr : usable.data()}; }
  };

  int viewCount() const;
  bool prepare(const LocalMotionOptions& options, LocalMotionResult& result, const JobRunner& run);
  void fill(Frame& frame) const;
  void blur(const JobRunner& run);
  void takeOutLevel(Frame& frame, const Frame& reference);

  // What is wrong with the sensor (LocalMotionSensor.cpp).
  void findCandidates(const LocalMotionOptions& options);
  bool isVideo() const;
  void adoptFindings();
  void reportFindings(LocalMotionResult& result) const;
  bool takeOutPlanes(const JobRunner& run);
  Faults findFaults(const LocalMotionOptions& options, const JobRunner& run, LocalMotionResult& result);
  void fillWithPrediction(Frame& frame, const std::vector<float>& residual) const;
  std::vector<std::size_t> alignedFrames() const;

  void findMotion(const LocalMotionOptions& options, const JobRunner& run, bool search);
  void markTrusted(const LocalMotionOptions& options, const JobRunner& run);
  void trustOverlap();
  SolverBurst solverBurst(const LocalMotionOptions& options) const;
  NoiseReport measureNoise(std::vector<std::vector<float>>& residuals) const;
  double deviationOfMeans(const std::vector<std::vector<float>>& residuals) const;
  void countCoverage(LocalMotionResult& result) const;
  void report(LocalMotionResult& result) const;
  void judge(LocalMotionResult& result) const;
  double steepestMotion() const;

  int width;
  int height;
  std::vector<Frame> frames;
  std::vector<unsigned char> listedBad;
  std::vector<float> knownPattern;         // empty: none
  std::vector<AffineMotion> knownMotions;  // per frame; empty: to be estimated
  std::vector<unsigned char> bad;          // listed ones and those found; empty: none
  std::unique_ptr<BurstBadPixels> search;
  int reference = 0;
  double noise = 0;
  double referenceDeviation = 0;
};

}  // namespace movra::vision::detail
