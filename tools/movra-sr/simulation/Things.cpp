#include "tools/movra-sr/simulation/Things.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace movra::tool {

namespace {

/// Paints thick strokes with round ends; a stroke of no length is a disc. A pixel takes the share of the value by which the
/// stroke covers it, told by the distance of the stroke's edge from the pixel's middle.
class StrokePainter {
 public:
  StrokePainter(cv::Mat_<float>& scene, const cv::Rect& view, cv::Point2d offset)
      : canvas(scene), place(view), origin(cv::Point2d(view.tl()) + offset) {}

  /// Ends in shares of the view's width and height, radius in high-resolution pixels.
  void stroke(cv::Point2d from, cv::Point2d to, double radius, float value) {
    const cv::Point2d a = at(from);
    const cv::Point2d b = at(to);
    const cv::Point2d ab = b - a;
    const double length = ab.dot(ab);
    const int top = static_cast<int>(std::floor(std::min(a.y, b.y) - radius)) - 1;
    const int bottom = static_cast<int>(std::ceil(std::max(a.y, b.y) + radius)) + 1;
    const int left = static_cast<int>(std::floor(std::min(a.x, b.x) - radius)) - 1;
    const int right = static_cast<int>(std::ceil(std::max(a.x, b.x) + radius)) + 1;
    for (int y = std::max(0, top); y < std::min(canvas.rows, bottom); ++y) {
      for (int x = std::max(0, left); x < std::min(canvas.cols, right); ++x) {
        const cv::Point2d p = cv::Point2d(x + 0.5, y + 0.5) - a;
        const double along = length > 0 ? std::clamp(p.dot(ab) / length, 0., 1.) : 0;
        const double covered = std::clamp(radius + 0.5 - cv::norm(p - along * ab), 0., 1.);
        canvas(y, x) += static_cast<float>(covered) * (value - canvas(y, x));
      }
    }
  }

  void disc(cv::Point2d centre, double radius, float value) { stroke(centre, centre, radius, value); }

  double height() const { return place.height; }

 private:
  cv::Point2d at(cv::Point2d share) const {
    return origin + cv::Point2d(share.x * place.width, share.y * place.height);
  }

  cv::Mat_<float>& canvas;
  cv::Rect place;
  cv::Point2d origin;
};

}  // namespace

ValueSpan valueSpan(const cv::Mat_<float>& scene) {
  std::vector<float> values(scene.begin(), scene.end());
  const auto percentile = [&](double share) {
    const auto nth = values.begin() + std::lround(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), nth, values.end());
    return static_cast<double>(*nth);
  };
  return {percentile(0.01), percentile(0.99)};
}

void drawNearThing(cv::Mat_<float>& scene, const cv::Rect& view, cv::Point2d offset, const ValueSpan& values) {
  StrokePainter painter(scene, view, offset);
  const double height = painter.height();
  painter.stroke({0.14, -0.1}, {0.24, 1.1}, 0.05 * height, values.at(0.75));
  painter.stroke({0.15, -0.1}, {0.25, 1.1}, 0.008 * height, values.at(0.4));
  for (int i = 0; i < 9; ++i) {
    const double y = 0.08 + 0.1 * i;
    const double x = 0.14 + 0.1 * (y + 0.1) / 1.2;
    const double reach = 0.16 + 0.05 * (i % 3);
    painter.stroke({x, y}, {x + reach, y - 0.12}, 3 - 0.25 * i, values.at(0.7));
    painter.stroke({x + 0.5 * reach, y - 0.06}, {x + 0.9 * reach, y + 0.05}, 1.2, values.at(0.65));
  }
  painter.disc({0.72, 0.4}, 0.2 * height, values.at(0.85));
  for (int i = -2; i <= 2; ++i) {
    painter.stroke({0.66, 0.4 + 0.05 * i}, {0.78, 0.42 + 0.05 * i}, 1 + 0.01 * height, values.at(0.3 + 0.1 * i));
  }
}

void drawMover(cv::Mat_<float>& scene, const cv::Rect& view, cv::Point2d offset, const ValueSpan& values) {
  StrokePainter painter(scene, view, offset);
  painter.disc({0.45, 0.45}, 0.06 * painter.height(), values.at(0.9));
  painter.stroke({0.44, 0.43}, {0.46, 0.47}, 1 + 0.005 * painter.height(), values.at(0.5));
}

}  // namespace movra::tool
