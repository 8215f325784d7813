#include "tools/movra-sr/report/Preview.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace movra::tool {

namespace {

const cv::Scalar background(32, 32, 32);
const cv::Scalar lightInk(230, 230, 230);
const cv::Vec3b missing(128, 128, 128);
constexpr int font = cv::FONT_HERSHEY_SIMPLEX;
constexpr double fontScale = 0.45;
constexpr int gap = 12;
constexpr int captionHeight = 28;
constexpr int captionWidth = 190;
constexpr int barWidth = 18;
constexpr int labelWidth = 84;
constexpr int ticks = 5;
constexpr int detailZoom = 4;  // the detail has a quarter of the image's sides and becomes as large as it

ValueRange robustRange(const cv::Mat_<float>& image) {
  std::vector<float> values;
  values.reserve(image.total());
  std::copy_if(image.begin(), image.end(), std::back_inserter(values), [](float v) { return std::isfinite(v); });
  if (values.empty()) {
    return {0, 1};
  }
  const auto percentile = [&](double share) {
    const auto nth = values.begin() + std::lround(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
  };
  const ValueRange range{percentile(0.005), percentile(0.995)};
  return range.high > range.low ? range : ValueRange{range.low, range.low + 1};
}

/// The unit in the letters that can be drawn, which are those of ASCII.
std::string drawable(std::string unit) {
  const std::string degree = "\u00B0";
  for (std::size_t place; (place = unit.find(degree)) != std::string::npos;) {
    unit.replace(place, degree.size(), "deg ");
  }
  return unit;
}

/// The range as levels 0 .. 255; what is not finite is 0.
cv::Mat_<unsigned char> levels(const cv::Mat_<float>& image, const ValueRange& range) {
  cv::Mat_<unsigned char> level(image.size());
  const float scale = 255 / (range.high - range.low);
  std::transform(image.begin(), image.end(), level.begin(), [&](float v) {
    const float position = std::isfinite(v) ? (v - range.low) * scale : 0;
    return static_cast<unsigned char>(std::lround(std::clamp(position, 0.f, 255.f)));
  });
  return level;
}

void write(cv::Mat& canvas, const std::string& text, cv::Point baseline) {
  cv::putText(canvas, text, baseline, font, fontScale, lightInk, 1, cv::LINE_AA);
}

void drawColourBar(cv::Mat& canvas, const cv::Rect& place, const ValueRange& range, const std::string& unit,
                   const Look& look) {
  cv::Mat_<float> ramp(place.height, place.width);
  for (int y = 0; y < ramp.rows; ++y) {
    ramp.row(y) = range.high - (range.high - range.low) * static_cast<float>(y) / static_cast<float>(ramp.rows - 1);
  }
  inColours(ramp, look, range).copyTo(canvas(place));
  const int decimals = range.high - range.low < 1 ? 3 : range.high - range.low < 10 ? 2 : 1;
  for (int tick = 0; tick < ticks; ++tick) {
    const int y = place.y + tick * (place.height - 1) / (ticks - 1);
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, static_cast<double>(ramp(y - place.y, 0)));
    cv::line(canvas, {place.x + place.width, y}, {place.x + place.width + 4, y}, lightInk);
    write(canvas, text, {place.x + place.width + 8, std::clamp(y + 4, place.y + 10, place.y + place.height)});
  }
  write(canvas, drawable(unit), {place.x, place.y - 9});
}

/// The part of the image where the reconstruction differs most from the enlarged frame, away from the border.
cv::Rect mostGained(const cv::Mat_<float>& bicubic, const cv::Mat_<float>& reconstruction) {
  const cv::Size whole = reconstruction.size();
  const cv::Size size(std::max(1, whole.width / detailZoom), std::max(1, whole.height / detailZoom));
  cv::Mat squares;
  cv::subtract(reconstruction, bicubic, squares);
  cv::patchNaNs(squares, 0);
  // A few large differences, such as bad pixels, do not decide.
  const ValueRange range = robustRange(reconstruction);
  squares = cv::min(cv::abs(squares), 0.1 * static_cast<double>(range.high - range.low));
  squares = squares.mul(squares);
  const int border = std::min({10, (whole.width - size.width) / 2, (whole.height - size.height) / 2});
  cv::Mat_<double> sums;
  cv::integral(squares, sums, CV_64F);
  cv::Rect best({border, border}, size);
  double most = -1;
  for (int y = border; y + size.height <= whole.height - border; y += 2) {
    for (int x = border; x + size.width <= whole.width - border; x += 2) {
      const double sum =
          sums(y + size.height, x + size.width) - sums(y, x + size.width) - sums(y + size.height, x) + sums(y, x);
      if (sum > most) {
        most = sum;
        best = cv::Rect({x, y}, size);
      }
    }
  }
  return best;
}

}  // namespace

const std::vector<Palette>& palettes() {
  static const std::vector<Palette> known = {{"inferno", cv::COLORMAP_INFERNO}, {"grey", -1},
                                             {"hot", cv::COLORMAP_HOT},         {"plasma", cv::COLORMAP_PLASMA},
                                             {"viridis", cv::COLORMAP_VIRIDIS}, {"turbo", cv::COLORMAP_TURBO}};
  return known;
}

ValueRange rangeOf(const cv::Mat_<float>& image, const Look& look) {
  return look.range ? *look.range : robustRange(image);
}

cv::Mat_<cv::Vec3b> inColours(const cv::Mat_<float>& image, const Look& look, const ValueRange& range) {
  const auto palette = std::find_if(palettes().begin(), palettes().end(),
                                    [&](const Palette& each) { return look.palette == each.name; });
  cv::Mat coloured;
  if (palette == palettes().end() || palette->colours < 0) {
    cv::cvtColor(levels(image, range), coloured, cv::COLOR_GRAY2BGR);
  } else {
    cv::applyColorMap(levels(image, range), coloured, palette->colours);
  }
  cv::Mat_<cv::Vec3b> result = coloured;
  std::transform(image.begin(), image.end(), result.begin(), result.begin(),
                 [](float v, const cv::Vec3b& colour) { return std::isfinite(v) ? colour : missing; });
  return result;
}

cv::Mat_<cv::Vec3b> drawPreview(const cv::Mat_<float>& bicubic, const cv::Mat_<float>& reconstruction,
                                const std::string& unit, const Look& look) {
  const ValueRange range = rangeOf(reconstruction, look);
  const int width = reconstruction.cols;
  const int height = reconstruction.rows;
  const int column = std::max(width, captionWidth);
  const cv::Rect part = mostGained(bicubic, reconstruction);
  const cv::Size zoomed = part.size() * detailZoom;
  const cv::Rect left(gap, captionHeight, width, height);
  const cv::Rect right(left.x + column + gap, captionHeight, width, height);
  const int detailTop = captionHeight + height + captionHeight;
  cv::Mat canvas(detailTop + zoomed.height + gap, 2 * column + 4 * gap + barWidth + labelWidth, CV_8UC3, background);
  for (const auto& [image, place] : {std::pair(bicubic, left), std::pair(reconstruction, right)}) {
    cv::Mat picture = inColours(image, look, range);
    cv::Mat detail = canvas(cv::Rect({place.x, detailTop}, zoomed));
    cv::resize(picture(part), detail, zoomed, 0, 0, cv::INTER_NEAREST);
    cv::rectangle(picture, part, lightInk);
    picture.copyTo(canvas(place));
  }
  write(canvas, "reference frame, bicubic", {left.x, captionHeight - 9});
  write(canvas, "super-resolution", {right.x, captionHeight - 9});
  const std::string times = std::to_string(detailZoom) + " times";
  write(canvas, times, {left.x, detailTop - 9});
  write(canvas, times, {right.x, detailTop - 9});
  drawColourBar(canvas, {right.x + column + gap, captionHeight, barWidth, height}, range, unit, look);
  return canvas;
}

cv::Mat_<cv::Vec3b> drawGrey(const cv::Mat_<float>& image) {
  cv::Mat picture;
  cv::cvtColor(levels(image, robustRange(image)), picture, cv::COLOR_GRAY2BGR);
  return picture;
}

}  // namespace movra::tool
