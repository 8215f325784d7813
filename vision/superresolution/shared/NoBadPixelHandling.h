#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

/// In place of SuperResolutionBadPixelHandling where frames and results stay as they are.
class MOVRA_SUPERRESOLUTION_API NoBadPixelHandling {
 public:
  /// Keeps nothing.
  explicit NoBadPixelHandling(unsigned /*windowSize*/) {}

  /// Every frame is taken as it is.
  /// @return 0
  int detectAndReplaceBadPixel(cv::Mat_<float>& /*frame*/) { return 0; }
  /// Does nothing.
  void maskBadPixel(cv::Mat_<float>& /*image*/, const std::vector<cv::Point_<float>>& /*shifts*/) {}
  /// Does nothing.
  void replaceMaskedPixel(cv::Mat_<float>& /*image*/, const std::vector<cv::Point_<float>>& /*shifts*/,
                          const std::vector<cv::Mat_<float>>& /*frames*/) {}
  /// Does nothing.
  void clearDefectMaps() {}
};

}  // namespace movra::vision
