#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/superresolution/detail/registration/CornerStrength.h"

namespace movra::vision::detail {

/// Finds the strongest corners of an image (J. Shi and C. Tomasi): local maxima of the smaller eigenvalue of the 3 x 3
/// structure tensor that exceed a tenth of its largest value, at most 100, at least 2 pixels from each other. The corners
/// and their order are those of cv::goodFeaturesToTrack with these settings. Memory is used again for images of one size.
class CornerDetector {
 public:
  std::vector<cv::Point_<float>> find(const cv::Mat_<float>& image);

 private:
  void collectMaxima();

  std::unique_ptr<CornerStrength> strength;
  std::vector<unsigned char> isMaximum;  // of one row
  std::vector<const float*> maxima;      // in the strengths
};

}  // namespace movra::vision::detail
