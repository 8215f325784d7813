#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "vision/superresolution/AffineMotion.h"

namespace movra::tool {

/// How the frames of a simulated burst move.
struct MotionModel {
  double maxShift = 2;  ///< largest displacement per axis, low-resolution pixels
  double roll = 0;      ///< degrees
  double zoom = 0;      ///< percent
  double parallax = 0;  ///< by how much a near thing moves more where the shift is largest, low-resolution pixels
  double shutter = 0;   ///< how far the scene moves from the first to the last row, low-resolution pixels
  double mover = 0;     ///< how far a warm disc moves from frame to frame, low-resolution pixels
};

/// Motion of one frame against the reference frame, which has none.
struct FrameMotion {
  vision::AffineMotion camera;
  cv::Point2d shutter;   ///< added from -1/2 of it in the first row to +1/2 of it in the last
  cv::Point2d parallax;  ///< of the near thing, beyond the camera's motion, in the reference's pixels
  cv::Point2d mover;     ///< of the warm disc, likewise

  /// The reference position that the frame's pixel sees.
  cv::Point2d seenBy(cv::Point2d pixel, cv::Size frameSize) const;
};

/// The motions of `count` frames. Shifts are drawn at random; roll turns the frames right and left in turn; zoom enlarges
/// two frames and shrinks two in turn; the shutter's direction is drawn at random; the mover goes straight.
std::vector<FrameMotion> drawMotions(const MotionModel& model, int count, int reference, cv::RNG& random);

}  // namespace movra::tool
