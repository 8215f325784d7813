#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "vision/superresolution/detail/registration/FrameBlur.h"

namespace movra::vision::detail {

/// The frames that CornerRegistration holds, oldest first: a blurred copy and an 8-bit pyramid of each.
class TrackableFrames {
 public:
  TrackableFrames(int width, int height, int capacity);

  /// Takes a frame, height x width; the oldest one drops out once the store is full. A frame for which there is not
  /// enough memory is counted, as one that cannot be tracked, before the exception leaves: the store holds the same
  /// frames as the caller's window at any time.
  void add(const float* frame);
  void clear() { held = 0; }

  int count() const { return held; }
  cv::Mat_<float>& blurred(int frame) { return blurredFrames[static_cast<std::size_t>(frame)]; }
  /// Of all frames ever taken, from 1 on.
  unsigned long number(int frame) const { return numbers[static_cast<std::size_t>(frame)]; }
  const std::vector<cv::Mat>& pyramid(int frame) const { return pyramids[static_cast<std::size_t>(frame)]; }

  /// False for a frame that add could not prepare.
  bool isTrackable(int frame) const { return !pyramid(frame).empty(); }

  static constexpr int trackingWindow = 21;
  static constexpr int highestLevel = 3;

 private:
  void prepare(const float* frame, cv::Mat_<float>& blurredFrame, std::vector<cv::Mat>& pyramid);
  void widenDisplayWindow(float minimum, float maximum);

  int width;
  int height;
  int capacity;
  int held = 0;
  unsigned long taken = 0;
  FrameBlur blur;
  std::vector<cv::Mat_<float>> blurredFrames;
  std::vector<std::vector<cv::Mat>> pyramids;
  std::vector<unsigned long> numbers;
  cv::Mat_<unsigned char> grey;  // 8-bit form of the newest frame
  // Grey-value window of the 8-bit conversion
  float displayMax;
  float displayMin;
  float displayScale = 1;
  float displayOffset = 0;
};

}  // namespace movra::vision::detail
