#pragma once

#include <vector>

#include "vision/superresolution/detail/localmotion/LayerSplit.h"

namespace movra::vision::detail {

/// Which pixels of the reference a frame's motion can be trusted at: where the blurred frame, moved, differs from the blurred
/// reference by no more than a small misalignment and the noise explain.
///
///     box7(D^2) < d^2 box7(max5(g^2)) + 9 s^2
///
/// with D the difference (see LayerSplit.h), g the gradient of the blurred reference, max5 the largest in 5 x 5 pixels,
/// box7 the mean over 7 x 7, d the misalignment in pixels and s the noise of D, but no more than a quarter of a frame's.
class TrustMasks {
 public:
  /// @param noise standard deviation of a pixel of a frame
  TrustMasks(const MotionFrame& reference, double noise);

  /// Marks where the frame is trusted to move as each of the layers says: each pixel in one of them at the most.
  /// @param misalignment d, low-resolution pixels
  void mark(const MotionFrame& frame, const std::vector<MotionLayer>& layers, double misalignment) const;

 private:
  MotionFrame reference;
  double noise;
  int width;
  int height;
  std::vector<float> gradients;  // box7(max5(g^2))
};

}  // namespace movra::vision::detail
