#include "tools/movra-sr/report/EdgePlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <opencv2/imgproc.hpp>

namespace movra::tool {

namespace {

const cv::Scalar ink(60, 60, 60);
const cv::Scalar dot(200, 140, 60);
const cv::Scalar line(40, 60, 210);
constexpr int margin = 64;
const cv::Size plotSize(760, 460);

struct Axis {
  double low;
  double high;
  int from;
  int to;

  int at(double value) const {
    return from + static_cast<int>(std::lround((value - low) / (high - low) * (to - from)));
  }
};

void label(cv::Mat& picture, double value, cv::Point place) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3g", value);
  cv::putText(picture, text, place, cv::FONT_HERSHEY_SIMPLEX, 0.4, ink, 1, cv::LINE_AA);
}

}  // namespace

cv::Mat_<cv::Vec3b> drawEdge(const std::vector<EdgePoint>& points) {
  cv::Mat picture(plotSize, CV_8UC3, cv::Scalar(255, 255, 255));
  if (points.empty()) {
    return picture;
  }
  const auto [low, high] =
      std::minmax_element(points.begin(), points.end(), [](const auto& a, const auto& b) { return a.value < b.value; });
  const double spare = 0.05 * std::max(high->value - low->value, 1e-9);
  const double reach = std::max(points.back().distance - points.front().distance, 1e-9);
  const Axis x{points.front().distance, points.front().distance + reach, margin, plotSize.width - 16};
  const Axis y{low->value - spare, high->value + spare, plotSize.height - margin, 16};
  cv::rectangle(picture, {x.from, y.to}, {x.to, y.from}, ink);
  for (int tick = 0; tick <= 4; ++tick) {
    const double distance = x.low + tick * (x.high - x.low) / 4;
    const double value = y.low + tick * (y.high - y.low) / 4;
    label(picture, distance, {x.at(distance) - 10, y.from + 16});
    label(picture, value, {8, y.at(value) + 4});
  }
  cv::putText(picture, "distance from the edge, frame pixels (dots: pixels, line: fit)", {margin, plotSize.height - 16},
              cv::FONT_HERSHEY_SIMPLEX, 0.45, ink, 1, cv::LINE_AA);
  for (const EdgePoint& point : points) {
    cv::circle(picture, {x.at(point.distance), y.at(point.value)}, 2, dot, cv::FILLED, cv::LINE_AA);
  }
  for (std::size_t i = 1; i < points.size(); ++i) {
    cv::line(picture, {x.at(points[i - 1].distance), y.at(points[i - 1].model)},
             {x.at(points[i].distance), y.at(points[i].model)}, line, 1, cv::LINE_AA);
  }
  return picture;
}

}  // namespace movra::tool
