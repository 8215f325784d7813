#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "tools/movra-sr/simulation/Things.h"

namespace movra::tool {

/// What is wrong with a simulated sensor. Values are in the scene's unit.
struct FaultModel {
  double noise = 0.05;  ///< standard deviation of the white noise
  double drift = 0;     ///< how far the level drifts from the first frame to the last
  double pattern = 0;   ///< standard deviation of an offset per pixel, the same in all frames
  double stripes = 0;   ///< likewise per column
  int stuck = 0;        ///< pixels that hold one value of the scene's range
  int defects = 0;      ///< pixels that are stuck, off by some, dead or flickering, in turn
};

/// A pixel that does not measure.
struct Defect {
  enum class Kind { stuck, off, dead, flickering };

  cv::Point pixel;
  Kind kind;
  float value;  ///< the pixel's own, or what is added to it
};

const char* nameOf(Defect::Kind kind);

/// A sensor with faults.
class FaultySensor {
 public:
  /// @param values of the scene, by which defects are made
  FaultySensor(const FaultModel& model, cv::Size size, const ValueSpan& values, std::uint64_t seed);

  const std::vector<Defect>& defects() const { return badPixels; }
  const cv::Mat_<float>& pattern() const { return offsets; }

  /// Spoils a frame; `noise` is the generator of the noise, `level` is added.
  void spoil(cv::Mat_<float>& frame, double level, cv::RNG& noise);

 private:
  void addDefects(int count, bool allKinds, const ValueSpan& values);

  double noiseDeviation;
  cv::RNG random;
  cv::Mat_<float> offsets;
  std::vector<Defect> badPixels;
};

}  // namespace movra::tool
