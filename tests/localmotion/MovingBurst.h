#pragma once

#include <functional>
#include <vector>

#include "tests/support/SyntheticBurst.h"

namespace movra::test {

/// Where a frame sees the scene point of a reference position, low-resolution pixels.
using Motion = std::function<cv::Point2d(cv::Point2d)>;

/// What a scene adds at a reference position in frame k, kelvin.
using Extra = std::function<double(int k, cv::Point2d)>;

/// Frames of the endless scene: frame k at pixel p sees the reference position `back[k](p)`. Each pixel is the scene's mean
/// under a Gaussian of 0.683 high-resolution pixels. Noise of 0.02 K. The reference has the identity.
SyntheticBurst makeMovingBurst(int width, int height, const std::vector<Motion>& back, const Extra& extra = {});

/// Rotation about the middle of the image, then a shift; its inverse is what makeMovingBurst takes.
Motion inverseOf(double radians, cv::Point2d shift, int width, int height);

}  // namespace movra::test
