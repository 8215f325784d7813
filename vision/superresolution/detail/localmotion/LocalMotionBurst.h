#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "vision/superresolution/BurstBadPixels.h"
#include "vision/superresolution/FrameSelection.h"
#include "vision/superresolution/LocalMotionOptions.h"
#include "vision/superresolution/LocalMotionResult.h"
#include "vision/superresolution/NoiseEstimate.h"
#include "vision/superresolution/detail/localmotion/AffineEstimation.h"
#include "vision/superresolution/detail/localmotion/MotionField.h"
#include "vision/superresolution/detail/localmotion/TiledReconstruction.h"

namespace movra::vision::detail {

/// Does the work of LocalMotionSuperResolution: holds the frames and runs the steps of docs/method.md, "Local
/// motion", in the order of the declarations below.
class LocalMotionBurst {
 public:
  LocalMotionBurst(int width, int height) : width(width), height(height) {}

  void add(const float* frame);
  void clear() { given.clear(); }
  int givenCount() const { return static_cast<int>(given.size()); }
  void setBadPixels(const unsigned char* map);
  void setKnownPattern(std::vector<float> pattern) { knownPattern = std::move(pattern); }
  void setMotions(std::vector<AffineMotion> motions) { knownMotions = std::move(motions); }
  bool hasMotionPerFrame() const { return knownMotions.empty() || knownMotions.size() == given.size(); }

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
    const float* given = nullptr;
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
    double coverage = 1;  // share of its pixels that are trusted
    double residual = 0;
    FrameUse use = FrameUse::used;

    MotionFrame forMotion() const { return {pyramid.get(), usable.empty() ? nullptr : usable.data()}; }
  };

  // Which frames take part (LocalMotionSelection.cpp).
  struct Choice {
    int reference;
    int wanted;
    std::vector<int> taken;              // ascending
    std::vector<LocalMotionFrame> told;  // of all frames, as far as the choice knows them
  };
  Choice choose(const LocalMotionOptions& options) const;
  void survey(const LocalMotionOptions& options, Choice& choice) const;
  double noiseShareOf(const LocalMotionOptions& options, int base, const std::vector<FrameQuality>& qualities) const;
  void leaveOutBadFrames(const LocalMotionOptions& options);
  void tellAll(const Choice& choice, LocalMotionResult& result) const;

  // The steps in their order, and the values of the frames (LocalMotionBurst.cpp).
  LocalMotionResult reconstructTaken(const LocalMotionOptions& options, bool registrationOnly);
  bool prepare(const LocalMotionOptions& options, LocalMotionResult& result, const JobRunner& run);
  void fill(Frame& frame) const;
  void takeOutLevel(Frame& frame, const Frame& reference);
  void blur(const JobRunner& run);

  // How they lie against the reference, and where they can be trusted (LocalMotionRegistration.cpp).
  void findMotion(const LocalMotionOptions& options, const JobRunner& run, bool search);
  double steepestMotion() const;
  void markTrusted(const LocalMotionOptions& options, const JobRunner& run);

  // What is wrong with the sensor (LocalMotionSensor.cpp).
  void findCandidates(const LocalMotionOptions& options);
  bool takeOutPlanes(const JobRunner& run);
  void leaveCandidatesToScene();
  Faults findFaults(const LocalMotionOptions& options, const JobRunner& run, LocalMotionResult& result);
  bool fitWhereNeeded(TiledReconstruction& tiles, const SolverBurst& burst, const LocalMotionOptions& options,
                      const JobRunner& run, const std::vector<AffineMotion>& motions,
                      std::vector<std::vector<float>>& residuals, PatternAverage& nothing);
  void fillWithPrediction(Frame& frame, const std::vector<float>& residual, bool showsPyramid) const;
  void changePixel(Frame& frame, std::size_t pixel, float value) const;
  void adoptFindings();
  void reportFindings(LocalMotionResult& result) const;
  bool isVideo() const;

  // What the solver gets (LocalMotionSolve.cpp).
  int viewCount() const;
  SolverBurst solverBurst(const LocalMotionOptions& options) const;
  void measureResiduals(std::vector<std::vector<float>>& residuals);
  NoiseReport measureNoise(std::vector<std::vector<float>>& residuals) const;
  double deviationOfMeans(const std::vector<std::vector<float>>& residuals) const;

  // What the caller is told (LocalMotionReport.cpp).
  void report(LocalMotionResult& result) const;
  std::size_t countCoverage(const Frame& frame, const MotionField& motion, const std::vector<char>& trusted,
                            cv::Mat_<unsigned short>& coverage) const;
  void judge(LocalMotionResult& result) const;

  int count() const { return static_cast<int>(frames.size()); }
  std::vector<std::size_t> alignedFrames() const;

  int width;
  int height;
  std::vector<std::vector<float>> given;
  std::vector<Frame> frames;  // those that take part
  std::vector<unsigned char> listedBad;
  std::vector<float> knownPattern;         // empty: none
  std::vector<AffineMotion> knownMotions;  // per given frame; empty: to be estimated
  std::vector<AffineMotion> takenMotions;  // the same of the frames that take part
  std::vector<unsigned char> bad;          // listed ones and those found; empty: none
  std::unique_ptr<BurstBadPixels> search;
  int reference = 0;
  double noise = 0;
  double referenceDeviation = 0;
};

}  // namespace movra::vision::detail
