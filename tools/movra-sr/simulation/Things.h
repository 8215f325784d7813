#pragma once

#include <opencv2/core.hpp>

namespace movra::tool {

/// Values that things in a scene take: its 1st and 99th percentile.
struct ValueSpan {
  double low;
  double high;

  float at(double share) const { return static_cast<float>(low + share * (high - low)); }
};

ValueSpan valueSpan(const cv::Mat_<float>& scene);

/// Draws a thing near the camera into the scene: a slanted post with twigs, and a disc with bars, which together hide about
/// a quarter of the view. Edges have their true share of each pixel, wherever they lie.
/// @param view   the reference frame's part of the scene
/// @param offset of the thing from its place in the reference, high-resolution pixels
void drawNearThing(cv::Mat_<float>& scene, const cv::Rect& view, cv::Point2d offset, const ValueSpan& values);

/// Draws the thing that moves: a warm disc with a bar.
void drawMover(cv::Mat_<float>& scene, const cv::Rect& view, cv::Point2d offset, const ValueSpan& values);

}  // namespace movra::tool
