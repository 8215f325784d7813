#include "tools/movra-sr/report/Figures.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace movra::tool {

namespace {

/// Low-resolution pixels that the point-spread function reaches beyond a pixel.
constexpr double reachOfBlur = 1.5;

/// The frame's position of a place in the reference, minus the place, by shift, roll and zoom.
cv::Point2d shiftAt(const FrameOutcome& frame, cv::Point2d fromCentre) {
  const double angle = frame.roll * CV_PI / 180;
  const double scale = 1 + frame.zoom / 100;
  const cv::Point2d turned(scale * (std::cos(angle) * fromCentre.x - std::sin(angle) * fromCentre.y),
                           scale * (std::sin(angle) * fromCentre.x + std::cos(angle) * fromCentre.y));
  return turned - fromCentre + frame.shift;
}

}  // namespace

cv::Rect seenByAll(const Reconstruction& result) {
  const double width = result.image.cols / 2.;
  const double height = result.image.rows / 2.;
  double left = 0;
  double top = 0;
  double right = width;
  double bottom = height;
  for (const FrameOutcome& frame : result.frames) {
    if (!frame.used) {
      continue;
    }
    for (const double sideX : {-0.5, 0.5}) {
      for (const double sideY : {-0.5, 0.5}) {
        const cv::Point2d shift = shiftAt(frame, {sideX * width, sideY * height});
        const double spare = 2 * frame.localMotion;
        (sideX < 0 ? left : right) =
            sideX < 0 ? std::max(left, spare - shift.x) : std::min(right, width - shift.x - spare);
        (sideY < 0 ? top : bottom) =
            sideY < 0 ? std::max(top, spare - shift.y) : std::min(bottom, height - shift.y - spare);
      }
    }
  }
  const cv::Point first(static_cast<int>(std::ceil(2 * (left + reachOfBlur))),
                        static_cast<int>(std::ceil(2 * (top + reachOfBlur))));
  const cv::Point last(static_cast<int>(std::floor(2 * (right - reachOfBlur))),
                       static_cast<int>(std::floor(2 * (bottom - reachOfBlur))));
  return first.x < last.x && first.y < last.y ? cv::Rect(first, last) : cv::Rect();
}

std::optional<Statistics> statisticsOf(const Reconstruction& result) {
  Statistics statistics;
  statistics.inside = seenByAll(result);
  if (statistics.inside.empty()) {
    return {};
  }
  const cv::Mat_<float> inside = result.image(statistics.inside);
  double sum = 0;
  std::size_t count = 0;
  for (const float value : inside) {
    if (!std::isfinite(value)) {
      continue;
    }
    const double v = static_cast<double>(value);
    statistics.minimum = count == 0 ? v : std::min(statistics.minimum, v);
    statistics.maximum = count == 0 ? v : std::max(statistics.maximum, v);
    sum += v;
    ++count;
  }
  if (count == 0) {
    return {};
  }
  statistics.mean = sum / static_cast<double>(count);
  return statistics;
}

Spread spreadOf(const Reconstruction& result) {
  std::complex<double> x = 0;
  std::complex<double> y = 0;
  int count = 0;
  for (const FrameOutcome& frame : result.frames) {
    if (frame.used) {
      x += std::polar(1., 2 * CV_PI * frame.shift.x);
      y += std::polar(1., 2 * CV_PI * frame.shift.y);
      ++count;
    }
  }
  return count == 0 ? Spread{0, 0} : Spread{1 - std::abs(x) / count, 1 - std::abs(y) / count};
}

double medianOf(const cv::Mat_<float>& image) {
  std::vector<float> values;
  std::copy_if(image.begin(), image.end(), std::back_inserter(values), [](float v) { return std::isfinite(v); });
  if (values.empty()) {
    return 0;
  }
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return static_cast<double>(*middle);
}

}  // namespace movra::tool
