#include "tools/movra-sr/simulation/Faults.h"

#include <algorithm>

namespace movra::tool {

namespace {

/// One in this many defects lies beside the one before it.
constexpr int pairEvery = 10;

cv::Mat_<float> drawPattern(const FaultModel& model, cv::Size size, cv::RNG& random) {
  cv::Mat_<float> offsets(size);
  cv::Mat_<float> columns(1, size.width);
  random.fill(offsets, cv::RNG::NORMAL, 0, model.pattern);
  random.fill(columns, cv::RNG::NORMAL, 0, model.stripes);
  for (int row = 0; row < size.height; ++row) {
    cv::Mat line = offsets.row(row);
    line += columns;
  }
  return offsets;
}

}  // namespace

const char* nameOf(Defect::Kind kind) {
  switch (kind) {
    case Defect::Kind::stuck:
      return "stuck";
    case Defect::Kind::off:
      return "off";
    case Defect::Kind::dead:
      return "dead";
    case Defect::Kind::flickering:
      return "flickering";
  }
  return "";
}

FaultySensor::FaultySensor(const FaultModel& model, cv::Size size, const ValueSpan& values, std::uint64_t seed)
    : noiseDeviation(model.noise), random(~seed), offsets(drawPattern(model, size, random)) {
  addDefects(model.stuck, false, values);
  addDefects(model.defects, true, values);
}

void FaultySensor::addDefects(int count, bool allKinds, const ValueSpan& values) {
  const cv::Rect sensor({0, 0}, offsets.size());
  const auto isFree = [&](cv::Point pixel) {
    return pixel.inside(sensor) &&
           std::none_of(badPixels.begin(), badPixels.end(), [&](const Defect& other) { return other.pixel == pixel; });
  };
  for (int i = 0; i < count; ++i) {
    cv::Point pixel = badPixels.empty() ? cv::Point() : badPixels.back().pixel + cv::Point(1, 0);
    while (i % pairEvery != pairEvery - 1 || !isFree(pixel)) {
      pixel = {random.uniform(0, sensor.width), random.uniform(0, sensor.height)};
      if (isFree(pixel)) {
        break;
      }
    }
    const auto kind = allKinds ? static_cast<Defect::Kind>(i % 4) : Defect::Kind::stuck;
    const bool up = random.uniform(0, 2) == 1;
    const double share = random.uniform(0., 1.);
    // Off by 3 to 15 percent of the scene's range, which is 1 to 5 kelvin in the scene drawn here.
    const double size = (0.03 + 0.12 * share) * (values.high - values.low);
    const float step = static_cast<float>(up ? size : -size);
    const float value = kind == Defect::Kind::stuck  ? values.at(share)
                        : kind == Defect::Kind::dead ? values.at(up ? 1.5 : -0.5)
                                                     : step;
    badPixels.push_back({pixel, kind, value});
  }
}

void FaultySensor::spoil(cv::Mat_<float>& frame, double level, cv::RNG& noise) {
  cv::Mat_<float> white(frame.size());
  noise.fill(white, cv::RNG::NORMAL, 0, noiseDeviation);
  frame += white + offsets + level;
  for (const Defect& defect : badPixels) {
    float& pixel = frame(defect.pixel);
    switch (defect.kind) {
      case Defect::Kind::stuck:
      case Defect::Kind::dead:
        pixel = defect.value;
        break;
      case Defect::Kind::off:
        pixel += defect.value;
        break;
      case Defect::Kind::flickering:
        pixel += random.uniform(0, 2) == 1 ? defect.value : 0;
        break;
    }
  }
}

}  // namespace movra::tool
