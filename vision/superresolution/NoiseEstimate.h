#pragma once

#include "movra/Export.h"
#include "vision/superresolution/FrameStack.h"

namespace movra::vision {

/// How noisy a burst is, in the unit of its frames, and how strongly the reconstruction should be smoothed for it.
struct NoiseReport {
  double deviation = 0;  ///< standard deviation of the reference frame's measured pixels
  double noise = 0;      ///< standard deviation of the sensor's noise, from the frames alone
  double residual = 0;   ///< robust standard deviation of frame less prediction
  float weightTV = 400;  ///< weight of the total variation that fits this residual
};

/// Measures noise, from frames alone or from what a first reconstruction leaves unexplained. Pixels that are not finite
/// or flagged are left out. Holds nothing; results have the same bits on every instruction set. Any thread.
class MOVRA_SUPERRESOLUTION_API NoiseEstimate {
 public:
  /// Range of the weight.
  static constexpr float smallestWeightTV = 15;
  static constexpr float largestWeightTV = 400;

  /// Standard deviation of the noise of one frame: mean absolute value of a second difference that cancels planes
  /// (J. Immerkaer, "Fast noise variance estimation", 1996), over the flattest 30 % of the frame, with large values
  /// cut. Fine texture reads as noise: up to 2.6 times too much below 0.05 K. 0 for frames below 3 x 3 pixels.
  /// @param frame height x width, dense
  static double ofFrame(const float* frame, int width, int height);

  /// The median over the frames.
  /// @throws movra::Exception if there is no frame
  static double ofFrames(const FrameStack& frames);

  /// Everything, with the weight 5 deviation / residual, cut to 15 ... 400; 400 where nothing is left unexplained.
  /// @param residuals frame less prediction, on each frame's own grid, NaN where there is no prediction
  /// @throws movra::Exception for no frames, a reference that is none of them, or stacks of different shapes
  static NoiseReport ofResiduals(const FrameStack& frames, int reference, const FrameStack& residuals);

  /// The same where the noise of the frames is known.
  static NoiseReport ofResiduals(const FrameStack& frames, int reference, const FrameStack& residuals, double noise);
};

}  // namespace movra::vision
