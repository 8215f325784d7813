#pragma once

#include <vector>

#include "movra/Export.h"
#include "vision/superresolution/AffineMotion.h"

namespace movra::vision {

/// What is known of a frame before the choice.
struct FrameQuality {
  AffineMotion motion;     ///< against a frame that is the same for all
  double agreement = 1;    ///< share of the image's blocks whose own shift agrees with the motion
  double coverage = 1;     ///< share of the pixels that are trusted
  double residual = 0;     ///< robust deviation of frame less prediction; 0 if there is none yet
  bool registered = true;  ///< false if no motion was found
};

/// What became of a frame.
enum class FrameVerdict {
  reference,  ///< taken; its grid is the result's
  taken,
  spare,          ///< good, but there are enough better placed ones
  notRegistered,  ///< left out, here and below
  fewAgreeingBlocks,
  lowCoverage,
  largeShift,
  largeResidual,
};

/// In words, for a report.
MOVRA_SUPERRESOLUTION_API const char* toString(FrameVerdict verdict);

struct FrameSelectionReport {
  int reference = -1;                  ///< -1 if no frame was registered
  int wanted = 0;                      ///< frames asked for, or chosen by the noise
  double moveBlur = 0;                 ///< mean of f (1 - f) over the taken frames and both axes; 0 ... 0.25
  std::vector<int> taken;              ///< ascending, with the reference
  std::vector<FrameVerdict> verdicts;  ///< one per frame
};

/// Chooses the frames of a recording that a reconstruction shall use, and the reference among them.
///
/// A frame whose shift is a multiple of half a low-resolution pixel fits the high-resolution grid; in between, its
/// point-spread function is moved by linear interpolation, which blurs by the variance f (1 - f) per axis, f the
/// distance from the next grid point in high-resolution pixels. More frames at random places therefore make a result
/// worse, well placed ones make it better: the four half-pixel phases get frames in turn, each the one that blurs least.
///
/// Holds settings only; one thread at a time changes them. Results have the same bits on every instruction set.
class MOVRA_SUPERRESOLUTION_API FrameSelection {
 public:
  static constexpr int automatic = 0;
  static constexpr int all = -1;

  /// How many frames: a number, `all`, or `automatic` (the default): 12, or 20 if the noise exceeds 0.04 deviations.
  /// @throws movra::Exception for any other number below 1
  void setCount(int frames);

  /// Share of agreeing blocks below which a frame is left out; 0.25 by default. Half the median of all counts, too.
  void setLeastAgreement(double share) { leastAgreement = share; }

  /// A frame that has to be the reference, or -1 (the default) for the one with the smallest blur among those that lie in
  /// the middle of the others.
  void setReference(int frame) { fixedReference = frame; }

  /// @param frames what is known of each
  /// @param height of a frame in pixels: shifts beyond 5 % of it are large while there are more frames than wanted, else
  ///               beyond half of it; from the reference if it is given, else from the median of all. In the same way
  ///               agreement and coverage below half the median and residuals beyond 1.5 times the median are not
  ///               enough; of few frames, coverage below 5 % and residuals beyond 2.5 times the median.
  /// @param noiseShare the noise's standard deviation over that of the reference frame
  /// @throws movra::Exception for no frames, or a given reference that is none of them
  FrameSelectionReport select(const std::vector<FrameQuality>& frames, int height, double noiseShare) const;

 private:
  int count = automatic;
  int fixedReference = -1;
  double leastAgreement = 0.25;
};

}  // namespace movra::vision
