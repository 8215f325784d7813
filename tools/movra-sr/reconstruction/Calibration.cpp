#include "tools/movra-sr/reconstruction/Calibration.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "tools/movra-sr/Outcome.h"
#include "vision/superresolution/reference/SuperResolution.h"

namespace movra::tool {

namespace {

struct Exposure {
  cv::Mat_<short> counts;
  cv::Mat_<float> temperatures;
};

cv::Mat_<short> countsOf(const Frame& frame) {
  const auto isCount = [](float value) { return value >= -32768 && value <= 32767 && value == std::trunc(value); };
  if (!std::all_of(frame.pixels.begin(), frame.pixels.end(), isCount)) {
    throw Failure(ExitCode::badInput, frame.name +
                                          ": has values that are no counts within -32768 .. 32767; --nuc-low and "
                                          "--nuc-high take raw frames");
  }
  cv::Mat_<short> counts;
  frame.pixels.convertTo(counts, CV_16S);
  return counts;
}

void requireSize(const Frame& image, cv::Size size) {
  if (image.pixels.size() != size) {
    throw Failure(ExitCode::badInput, image.name + ": is " + sizeText(image.pixels.size()) + " but the frames are " +
                                          sizeText(size) + "; an exposure must have the frames' size");
  }
}

Exposure readExposure(const ExposureArgument& argument, cv::Size size) {
  const Frame raw = readImage(argument.countsFile);
  requireSize(raw, size);
  Exposure exposure{countsOf(raw), cv::Mat_<float>(size)};
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

void toTemperatures(std::vector<Frame>& frames, const ExposureArgument& low, const ExposureArgument& high) {
  if (low.temperatureFile.empty() && high.temperatureFile.empty() && low.temperature == high.temperature) {
    throw Failure(ExitCode::usage, "--nuc-low and --nuc-high show the same temperature; take two that differ");
  }
  const cv::Size size = frames.front().pixels.size();
  const Exposure cold = readExposure(low, size);
  const Exposure warm = readExposure(high, size);
  if (cv::mean(cold.temperatures)[0] > cv::mean(warm.temperatures)[0]) {
    throw Failure(ExitCode::usage, "--nuc-low is warmer than --nuc-high; exchange them");
  }
  if (cv::countNonZero(cold.counts != warm.counts) == 0) {
    throw Failure(ExitCode::badInput, low.countsFile + " and " + high.countsFile +
                                          ": all pixels have equal counts in the two exposures; take two of different "
                                          "temperature");
  }
  vision::SuperResolution converter(size.width, size.height, 1, 1);
  converter.setNucToRad(cold.counts, cold.temperatures, warm.counts, warm.temperatures);
  for (Frame& frame : frames) {
    converter.NucToRad(countsOf(frame));
    frame.pixels = converter.getRadiometricFrame().clone();
  }
}

}  // namespace movra::tool
