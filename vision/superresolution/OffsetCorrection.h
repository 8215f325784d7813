#pragma once

#include <vector>

#include "movra/Export.h"
#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/FrameStack.h"

namespace movra::vision {

/// How a frame's offset was found.
enum class OffsetOutcome {
  reference,     ///< the frame that the others are compared with
  median,        ///< one number, from the frames as they lie
  plane,         ///< a plane, from the overlap of the aligned frames
  smallOverlap,  ///< one number, because the overlap is too small for a plane
  noOverlap,     ///< nothing: the frames share too few measured pixels
};

/// In words, for a report.
MOVRA_SUPERRESOLUTION_API const char* toString(OffsetOutcome outcome);

/// What a frame has too much against the reference frame, in the unit of the frames.
struct MOVRA_SUPERRESOLUTION_API FrameOffset {
  OffsetOutcome outcome = OffsetOutcome::noOverlap;
  double offset = 0;   ///< in the middle of the frame
  double slopeX = 0;   ///< from the left edge of the frame to the right
  double slopeY = 0;   ///< from the top edge to the bottom
  double gain = 1;     ///< factor on the difference from `pivot`
  double pivot = 0;    ///< the value that the gain leaves as it is
  double overlap = 0;  ///< share of the reference's pixels that the comparison used, of those looked at

  /// Takes the offset out of a frame: value = (value - plane - pivot) / gain + pivot. Pixels that are not finite or
  /// flagged stay as they are.
  /// @param frame height x width, dense
  void removeFrom(float* frame, int width, int height) const;
};

/// Finds the offsets between the frames of a burst: a camera's shutter correction lets all values jump between two
/// frames, and its warming up tilts them. An offset of one kelvin makes registration err by a fifth of a pixel.
///
/// First medians, before registration; then planes, once the motion is known; best twice, with the motion measured
/// again in between. Pixels that are not finite or flagged are left out. Holds settings only; one thread at a time
/// changes them. Results have the same bits on every instruction set.
class MOVRA_SUPERRESOLUTION_API OffsetCorrection {
 public:
  /// Whether a plane is fitted (the default) or one number.
  void setPlane(bool fitPlane) { plane = fitPlane; }

  /// Whether a factor is fitted too; off by default. Only a factor that differs from 1 by more than 2 % is used: a
  /// smaller one costs nothing in the result, and its measurement could.
  void setGain(bool fitGain) { gain = fitGain; }

  /// Median difference of each frame to the reference, as the frames lie.
  /// @throws movra::Exception for no frames or a reference that is none of them
  std::vector<FrameOffset> medians(const FrameStack& frames, int reference) const;

  /// Robust plane (weights of P. J. Huber, 1964) of the difference between each frame, sampled by cubic convolution
  /// (R. G. Keys, 1981) where its motion puts the reference's pixels, and the reference.
  /// @param motions one per frame; the reference's own is ignored
  /// @throws movra::Exception also when there are not as many motions as frames
  std::vector<FrameOffset> planes(const FrameStack& frames, int reference,
                                  const std::vector<AffineMotion>& motions) const;

 private:
  bool plane = true;
  bool gain = false;
};

}  // namespace movra::vision
