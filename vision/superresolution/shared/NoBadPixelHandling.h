#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

/// In place of SuperResolutionBadPixelHandling where frames and results stay as they are.
class MOVRA_SUPERRESOLUTION_API NoBadPixelHandling {
 public:
  explicit NoBadPixelHandling(unsigned /*windowSize*/) {}

  int detectAndReplaceBadPixel(cv::Mat_<float>& /*frame*/) { return 0; }
  void maskBadPixel(cv::Mat_<float>& /*image*/, const std::vector<cv::Point_<float>>& /*shifts*/) {}
  void replaceMaskedPixel(cv::Mat_<float>& /*image*/, const std::vector<cv::Point_<float>>& /*shifts*/,
                          const std::vector<cv::Mat_<float>>& /*frames*/) {}
  void clearDefectMaps() {}
};

}  // namespace movra::vision
