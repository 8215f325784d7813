#include "tools/movra-sr/reconstruction/Calibration.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/reconstruction/UnsignedCounts.h"
#include "vision/superresolution/reference/SuperResolution.h"

namespace movra::tool {

namespace {

struct Exposure {
  cv::Mat_<short> counts;
  cv::Mat_<float> temperatures;
  cv::Mat_<unsigned char> bad;  // other than 0: no count
};

/// A frame with a larger share of pixels that are no counts is none of raw values.
constexpr double tolerableBadShare = 0.5;

bool isCount(float value) {
  return value >= -32768 && value <= 32767 && value == std::trunc(value);
}

/// The counts less `shift`. Pixels that are no counts become 0 and other than 0 in `bad`.
cv::Mat_<short> countsOf(const Frame& frame, float shift, cv::Mat_<unsigned char>& bad) {
  cv::Mat_<short> counts(frame.pixels.size());
  bad.create(frame.pixels.size());
  std::transform(frame.pixels.begin(), frame.pixels.end(), counts.begin(), [shift](float value) {
    return isCount(value - shift) ? static_cast<short>(value - shift) : short{0};
  });
  std::transform(frame.pixels.begin(), frame.pixels.end(), bad.begin(),
                 [shift](float value) { return static_cast<unsigned char>(isCount(value - shift) ? 0 : 255); });
  if (cv::countNonZero(bad) > tolerableBadShare * static_cast<double>(bad.total())) {
    throw Failure(ExitCode::badInput, frame.name +
                                          ": most of its values are no 16-bit counts; --nuc-low and --nuc-high take "
                                          "raw frames");
  }
  return counts;
}

void requireSize(const Frame& image, cv::Size size) {
  if (image.pixels.size() != size) {
    throw Failure(ExitCode::badInput, image.name + ": is " + sizeText(image.pixels.size()) + " but the frames are " +
                                          sizeText(size) + "; an exposure must have the frames' size");
  }
}

Frame readCounts(const ExposureArgument& argument, cv::Size size) {
  Frame raw = readImage(argument.countsFile);
  requireSize(raw, size);
  return raw;
}

Exposure exposureOf(const Frame& raw, float shift, const ExposureArgument& argument) {
  const cv::Size size = raw.pixels.size();
  Exposure exposure;
  exposure.counts = countsOf(raw, shift, exposure.bad);
  exposure.temperatures.create(size);
  if (argument.temperatureFile.empty()) {
    exposure.temperatures = argument.temperature;
  } else {
    const Frame image = readImage(argument.temperatureFile);
    requireSize(image, size);
    exposure.temperatures = image.pixels;
  }
  return exposure;
}

}  // namespace

ExposureArgument parseExposure(const std::string& text) {
  const std::size_t sign = text.rfind('=');
  if (sign == std::string::npos || sign == 0 || sign + 1 == text.size()) {
    throw Failure(ExitCode::usage, text + ": an exposure is FILE=TEMPERATURE or FILE=IMAGE");
  }
  ExposureArgument argument;
  argument.countsFile = text.substr(0, sign);
  const char* const begin = text.data() + sign + 1;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(begin, end, argument.temperature);
  const bool isNumber = error == std::errc() && stop == end && std::isfinite(argument.temperature);
  if (!isNumber) {
    argument.temperatureFile = std::string(begin, end);
  }
  return argument;
}

bool toTemperatures(std::vector<Frame>& frames, const ExposureArgument& low, const ExposureArgument& high) {
  if (low.temperatureFile.empty() && high.temperatureFile.empty() && low.temperature == high.temperature) {
    throw Failure(ExitCode::usage, "--nuc-low and --nuc-high show the same temperature; take two that differ");
  }
  const cv::Size size = frames.front().pixels.size();
  const Frame coldCounts = readCounts(low, size);
  const Frame warmCounts = readCounts(high, size);
  const bool areUnsigned = holdUnsignedCounts(frames) || holdUnsignedCounts({coldCounts, warmCounts});
  const float shift = areUnsigned ? unsignedMiddle : 0;
  const Exposure cold = exposureOf(coldCounts, shift, low);
  const Exposure warm = exposureOf(warmCounts, shift, high);
  const cv::Mat_<unsigned char> unusable(cold.bad | warm.bad);
  if (cv::mean(cold.temperatures)[0] > cv::mean(warm.temperatures)[0]) {
    throw Failure(ExitCode::usage, "--nuc-low is warmer than --nuc-high; exchange them");
  }
  if (cv::countNonZero((cold.counts != warm.counts) & (unusable == 0)) == 0) {
    throw Failure(ExitCode::badInput, low.countsFile + " and " + high.countsFile +
                                          ": all pixels have equal counts in the two exposures; take two of different "
                                          "temperature");
  }
  vision::SuperResolution converter(size.width, size.height, 1, 1);
  converter.setNucToRad(cold.counts, cold.temperatures, warm.counts, warm.temperatures);
  for (Frame& frame : frames) {
    cv::Mat_<unsigned char> bad;
    converter.NucToRad(countsOf(frame, shift, bad));
    frame.pixels = converter.getRadiometricFrame().clone();
    frame.pixels.setTo(std::numeric_limits<float>::quiet_NaN(), bad | unusable);
  }
  return areUnsigned;
}

}  // namespace movra::tool
