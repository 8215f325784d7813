#pragma once

#include <vector>

#include "vision/superresolution/detail/localmotion/AffineEstimation.h"
#include "vision/superresolution/detail/localmotion/MotionField.h"

namespace movra::vision::detail {

/// A motion that a frame shows, and where: height x width on the reference's grid, written.
struct MotionLayer {
  const MotionField* field;
  std::vector<char>* where;
};

/// How well the layers explain a frame.
struct LayerSplit {
  std::vector<float> mismatch;  // box7(D^2) of the layer that a pixel belongs to
  float deviation;              // robust standard deviation of D by the first layer
};

/// Gives each pixel of the reference to the layer that explains it best, by box7(D^2): D is the blurred frame, moved, minus
/// the blurred reference, with its median by the first layer taken out, box7 the mean over 7 x 7 pixels. Pixels whose
/// partner is outside the frame belong to no layer.
LayerSplit splitIntoLayers(const MotionFrame& reference, const MotionFrame& frame,
                           const std::vector<MotionLayer>& layers);

}  // namespace movra::vision::detail
