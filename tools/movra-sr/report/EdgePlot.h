#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace movra::tool {

/// A pixel near an edge.
struct EdgePoint {
  double distance;  ///< from the edge, low-resolution pixels
  double value;
  double model;
};

/// The values as dots and the model as a line over the distance. 8-bit blue, green, red.
cv::Mat_<cv::Vec3b> drawEdge(const std::vector<EdgePoint>& points);

}  // namespace movra::tool
