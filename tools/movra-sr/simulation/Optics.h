#pragma once

#include <opencv2/core.hpp>

#include "tools/movra-sr/simulation/Motion.h"

namespace movra::tool {

/// Smallest total blur of a sensor without gaps: that of the pixel's area alone, high-resolution pixels.
constexpr double blurOfPixelArea = 0.57735026918962576;  // a box of width 2 has the deviation 1 / sqrt(3)

/// How a sensor sees a scene of high-resolution pixels, each of one value: every low-resolution pixel takes the mean over
/// its area, two by two high-resolution pixels, of the scene blurred by the optics, a Gaussian. Sums are exact but for a
/// table of the weights with 1024 steps per pixel, between which it interpolates.
class Optics {
 public:
  /// @param totalBlur standard deviation of both together, high-resolution pixels, from blurOfPixelArea on
  explicit Optics(double totalBlur);

  /// High-resolution pixels that a low-resolution pixel sees to each side of the one that its centre lies in.
  int radius() const { return reach; }

  /// The frame of `size` that moves so.
  /// @param scene  its pixel (margin, margin) is the upper left of the reference frame's first pixel; beyond its border
  ///               the scene is mirrored
  cv::Mat_<float> look(const cv::Mat_<float>& scene, int margin, cv::Size size, const FrameMotion& motion) const;

 private:
  /// Weights of the pixels around a centre that lies at `place` (0 .. 1) in its pixel.
  void weightsAt(double place, double* weights) const;

  int reach;
  cv::Mat_<double> table;  // row: place of the centre; column: pixel
};

}  // namespace movra::tool
