#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace movra::tool {

/// How a simulated camera looks at a scene.
struct CameraModel {
  cv::Size frameSize{320, 240};  ///< columns x rows of a low-resolution frame
  int frameCount = 5;
  double psfSigma = 0.683;  ///< standard deviation of the Gaussian PSF, high-resolution pixels
  double noise = 0.05;      ///< standard deviation of the white noise, in the scene's unit
  double maxShift = 2;      ///< largest displacement per axis, low-resolution pixels
  std::uint64_t seed = 5;
};

/// A burst whose answer is known.
struct SimulatedBurst {
  std::vector<cv::Mat_<float>> frames;
  /// Position in the frame minus position in the reference, low-resolution pixels, x to the right, y
  /// downward.
  std::vector<cv::Point2d> shifts;
  cv::Mat_<float> truth;  ///< the scene on the high-resolution grid of the reference frame
  int reference = 0;      ///< its frame, whose shift is (0, 0)
};

/// Columns and rows that a scene needs beyond twice the frame size on each side, so that every frame looks at
/// scene.
int sceneMargin(const CameraModel& camera);

/// Looks at the scene (one value per high-resolution pixel, twice the frame size plus the margin on each
/// side) from places drawn at random: each low-resolution pixel is the sum of the scene's pixels weighted
/// with the mass that the PSF around the pixel's centre has over them, plus noise. The reference is the frame
/// that the library takes by default from the last five (the fourth from the end).
SimulatedBurst simulateBurst(const cv::Mat_<float>& scene, const CameraModel& camera);

}  // namespace movra::tool
