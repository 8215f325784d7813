#include "tools/movra-sr/simulation/Scene.h"

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

namespace movra::tool {

namespace {

/// Drawn at this multiple of the size and averaged down, so that edges have their true share of each pixel.
constexpr int oversampling = 4;

/// Paints temperatures. Places are shares of the width and height (0 .. 1), sizes of fine things are in
/// pixels of the finished scene.
class Painter {
 public:
  Painter(cv::Size size, std::uint64_t seed)
      : random(seed), canvas(size.height * oversampling, size.width * oversampling) {}

  /// A place near the given one, moved by up to two hundredths.
  cv::Point2d near(double x, double y) { return {x + random.uniform(-0.02, 0.02), y + random.uniform(-0.02, 0.02)}; }
  double jitter(double value, double by) { return value + random.uniform(-by, by); }

  void fillRows(double top, double bottom, double topValue, double bottomValue) {
    const int first = row(top);
    const int last = row(bottom);
    for (int y = first; y < last; ++y) {
      canvas.row(y) = static_cast<float>(topValue + (bottomValue - topValue) * (y - first) / (last - first));
    }
  }

  void rectangle(cv::Point2d from, cv::Point2d to, double value) {
    cv::rectangle(canvas, at(from), at(to), value, cv::FILLED);
  }

  /// A filled ellipse; radii as shares of the height.
  void ellipse(cv::Point2d centre, double radiusX, double radiusY, double value, double angle = 0) {
    cv::ellipse(canvas, at(centre), {row(radiusX), row(radiusY)}, angle, 0, 360, value, cv::FILLED);
  }

  void polygon(const std::vector<cv::Point2d>& corners, double value) {
    std::vector<cv::Point> points;
    for (const cv::Point2d& corner : corners) {
      points.push_back(at(corner));
    }
    cv::fillPoly(canvas, std::vector<std::vector<cv::Point>>{points}, value);
  }

  void line(cv::Point2d from, cv::Point2d to, double pixels, double value) {
    cv::line(canvas, at(from), at(to), value, std::max(1, static_cast<int>(std::lround(pixels * oversampling))));
  }

  /// Upright bars of growing width, gaps as wide as the bars.
  void bars(cv::Point2d from, double height, double narrowest, double widest, double value) {
    double x = from.x * canvas.cols;
    for (double pixels = narrowest; pixels <= widest; pixels += 0.25)
      for (int bar = 0; bar < 4; ++bar, x += 2 * pixels * oversampling) {
        cv::rectangle(canvas, cv::Point(static_cast<int>(x), row(from.y)),
                      cv::Point(static_cast<int>(x + pixels * oversampling) - 1, row(from.y + height)), value,
                      cv::FILLED);
      }
  }

  /// A star of wedges whose width shrinks to nothing at the centre.
  void star(cv::Point2d centre, double radius, int wedges, double value) {
    for (int i = 0; i < wedges; ++i) {
      cv::ellipse(canvas, at(centre), {row(radius), row(radius)}, 0, 360.0 * i / wedges, 360.0 * (i + 0.5) / wedges,
                  value, cv::FILLED);
    }
  }

  /// Lettering, capitals about `pixels` high.
  void text(const std::string& letters, cv::Point2d baseline, double pixels, double value) {
    const double scale = pixels * oversampling / 21;  // the font's capitals are 21 high
    cv::putText(canvas, letters, at(baseline), cv::FONT_HERSHEY_SIMPLEX, scale, value,
                std::max(1, static_cast<int>(1.2 * oversampling)));
  }

  void branch(cv::Point2d from, double angle, double length, double pixels, double value) {
    const double aspect = static_cast<double>(canvas.rows) / canvas.cols;
    const cv::Point2d to(from.x + aspect * length * std::cos(angle), from.y - length * std::sin(angle));
    line(from, to, pixels, value);
    if (pixels < 0.6) {
      return;
    }
    for (const double turn : {-0.5, 0.45}) {
      const double newAngle = jitter(angle + turn, 0.15);
      const double newLength = jitter(0.76, 0.06) * length;
      branch(to, newAngle, newLength, 0.72 * pixels, value + 0.2);
    }
  }

  /// Clouds of warmth of the given size (share of the height) and strength over everything.
  void mottle(double size, double strength) {
    const int cells = std::max(2, static_cast<int>(1 / size));
    cv::Mat_<float> coarse(cells, cells * canvas.cols / canvas.rows + 1);
    random.fill(coarse, cv::RNG::NORMAL, 0, strength);
    cv::Mat_<float> smooth;
    cv::resize(coarse, smooth, canvas.size(), 0, 0, cv::INTER_CUBIC);
    canvas += smooth;
  }

  cv::Mat_<float> finish() const {
    cv::Mat_<float> scene;
    cv::resize(canvas, scene, canvas.size() / oversampling, 0, 0, cv::INTER_AREA);
    return scene;
  }

 private:
  int row(double share) const { return static_cast<int>(std::lround(share * canvas.rows)); }
  cv::Point at(cv::Point2d place) const { return {static_cast<int>(std::lround(place.x * canvas.cols)), row(place.y)}; }

  cv::RNG random;
  cv::Mat_<float> canvas;
};

void drawHouse(Painter& painter) {
  painter.rectangle({0.06, 0.28}, {0.44, 0.66}, 9);
  painter.polygon({{0.03, 0.28}, {0.25, 0.12}, {0.47, 0.28}}, 4.5);
  painter.line({0.03, 0.28}, {0.47, 0.28}, 2, 11);
  painter.rectangle({0.33, 0.11}, {0.36, 0.22}, 17);
  for (int column = 0; column < 4; ++column)
    for (int storey = 0; storey < 2; ++storey) {
      const cv::Point2d corner(0.09 + 0.09 * column, 0.33 + 0.16 * storey);
      const cv::Point2d opposite = corner + cv::Point2d(0.055, 0.1);
      painter.rectangle(corner, opposite, painter.jitter(16, 3));
      const cv::Point2d middle = (corner + opposite) / 2;
      painter.line({middle.x, corner.y}, {middle.x, opposite.y}, 1.5, 10);
      painter.line({corner.x, middle.y}, {opposite.x, middle.y}, 1.5, 10);
    }
}

void drawPerson(Painter& painter, cv::Point2d feet, double height) {
  const double skin = painter.jitter(32, 1.5);
  const double clothes = painter.jitter(23, 2);
  const auto up = [&](double share, double aside = 0) {
    return cv::Point2d(feet.x + 0.75 * aside * height, feet.y - share * height);
  };
  for (const double side : {-0.07, 0.07}) {
    painter.ellipse(up(0.24, side), 0.055 * height, 0.25 * height, clothes - 2);
  }
  painter.ellipse(up(0.63), 0.15 * height, 0.22 * height, clothes);
  for (const double side : {-0.17, 0.17}) {
    painter.ellipse(up(0.6, side), 0.04 * height, 0.2 * height, clothes + 1, side * 60);
  }
  painter.ellipse(up(0.92), 0.075 * height, 0.095 * height, skin);
}

void drawCar(Painter& painter, cv::Point2d place) {
  const auto at = [&](double x, double y) { return place + cv::Point2d(x, y); };
  painter.polygon({at(0.04, 0), at(0.08, -0.08), at(0.18, -0.08), at(0.22, 0)}, 13);
  painter.polygon({at(0.085, -0.005), at(0.1, -0.065), at(0.165, -0.065), at(0.19, -0.005)}, 6);
  painter.rectangle(at(0, 0), at(0.28, 0.08), 14);
  painter.ellipse(at(0.25, 0.035), 0.045, 0.03, 33);
  for (const double wheel : {0.06, 0.21}) {
    painter.ellipse(at(wheel, 0.085), 0.035, 0.035, 21);
    painter.ellipse(at(wheel, 0.085), 0.016, 0.016, 12);
  }
}

}  // namespace

cv::Mat_<float> drawScene(cv::Size size, std::uint64_t seed) {
  Painter painter(size, seed);
  painter.fillRows(0, 0.5, -4, 3);
  painter.fillRows(0.5, 1, 10, 15);
  painter.line({0.45, 0.08}, {1, 0.2}, 1, 6);
  painter.line({0.45, 0.1}, {1, 0.23}, 1.5, 6);
  drawHouse(painter);
  painter.branch(painter.near(0.62, 0.62), 1.55, 0.13, 5, 7);
  painter.star({0.86, 0.4}, 0.13, 24, 18);
  for (int post = 0; post < 40; ++post) {
    const double x = 0.48 + 0.0135 * post;
    painter.line({x, 0.58}, {x, 0.67}, 1.5, 6);
  }
  painter.line({0.48, 0.6}, {1, 0.6}, 1.5, 6);
  drawCar(painter, painter.near(0.64, 0.72));
  drawPerson(painter, painter.near(0.5, 0.88), 0.3);
  drawPerson(painter, painter.near(0.57, 0.85), 0.26);
  painter.text("MOVRA 37.2", {0.05, 0.8}, 14, 22);
  painter.text("thermal 0123456789", {0.05, 0.86}, 8, 22);
  painter.bars({0.05, 0.9}, 0.06, 1, 3, 20);
  painter.mottle(0.3, 0.6);
  painter.mottle(0.05, 0.15);
  return painter.finish();
}

}  // namespace movra::tool
