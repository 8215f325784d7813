#pragma once

#include <opencv2/core.hpp>

#include "vision/superresolution/SuperResolutionTypes.h"

namespace movra::vision::detail {

/// Between the points of the reference engine and OpenCV's.
inline PointF toPointF(const cv::Point_<float>& point) {
  return {point.x, point.y};
}
inline cv::Point_<float> toCvPoint(const PointF& point) {
  return {point.x, point.y};
}

}  // namespace movra::vision::detail
