#pragma once

#include <functional>

namespace movra::vision {

/// Trade between time and picture: iterations, relative residue, and the motion that a tile may have inside, in pixels.
/// The edge weights of the smoothing are made anew every three iterations, in best every four.
enum class LocalMotionPreset {
  fast,      ///< 6 iterations, 0.002, 0.2
  standard,  ///< 9 iterations, 0.002, 0.12
  best,      ///< 24 iterations, 0.001, 0.08
};

/// Parameters of LocalMotionSuperResolution. A value of 0 stands for the rule named in the comment.
struct LocalMotionOptions {
  /// Reference value that asks for the frame whose grid the others fit best (FrameSelection).
  static constexpr int bestReference = -1;

  /// Values of `frames`: 12, or 20 if the noise exceeds 0.04 deviations of the reference; and no limit.
  static constexpr int automaticFrames = 0;
  static constexpr int allFrames = -1;

  LocalMotionPreset preset = LocalMotionPreset::standard;

  /// Index of the frame whose grid the result has, 0 ... frames - 1, or bestReference.
  int reference = bestReference;

  /// Most frames that take part, the reference included. Of more, those are chosen that complement each other best
  /// (FrameSelection): more frames take more time, and soon gain little.
  int frames = automaticFrames;

  /// Valid values, bounds included; other pixels count as bad. Default: temperatures in degrees Celsius, as everywhere
  /// in the library.
  float lowestValid = -274;
  float highestValid = 5000;

  /// Standard deviation of the whole blur (optics and pixel area) in high-resolution pixels, 0.3 ... 2.
  double psfSigma = 0.683;

  /// Standard deviation of the Gaussian whose mass in each high-resolution pixel is the solver's PSF, 0.14 ... 2.
  /// 0: sqrt(psfSigma^2 - 1/12), since such a pixel has the variance 1/12, but at least 0.14.
  double solverSigma = 0;

  /// Inverse strength of the total-variation term, 1 ... 10000. 0: from the residual of a first fit.
  double weightTV = 0;

  /// Budget of conjugate-gradient iterations per tile, 1 ... 1000, and relative residue at which a solve ends,
  /// 1e-6 ... 1. 0: from the preset.
  int iterations = 0;
  double relativeResidue = 0;

  /// Side of a tile without its margin in low-resolution pixels, 8 ... 4096. 0: from the motion.
  int tileCore = 0;

  /// Misalignment in low-resolution pixels beyond which a pixel is masked, 0.05 ... 10. 0: 0.5, or 0.12 for frames with
  /// local motion. What the solved image then shows to be misaligned by more than 0.1 is masked as well.
  double alignmentError = 0;

  /// Share of agreeing blocks below which a frame is left out, 0 ... 1.
  double leastAgreement = 0.25;

  /// Takes the difference of each frame's level to the reference's out (OffsetCorrection: the median, then
  /// a plane).
  bool correctOffset = true;

  /// Finds bad pixels that nobody listed, and masks them (BurstBadPixels). Needs motion between the frames.
  bool findBadPixels = true;

  /// Finds the fixed pattern of the sensor, and subtracts it (FixedPattern). Needs motion between the frames.
  bool correctPattern = true;

  /// Runs jobs 0 ... n - 1, in any order and on any number of threads, and returns when all are done. Results have the same
  /// bits for each. None: one after the other on the caller's thread. A job does not throw.
  std::function<void(int jobs, const std::function<void(int)>& job)> runJobs;

  /// Called on the caller's thread with the share of the work done, 0 ... 1; false ends the reconstruction.
  std::function<bool(double done)> progress;
};

}  // namespace movra::vision
