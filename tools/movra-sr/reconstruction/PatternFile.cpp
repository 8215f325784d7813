#include "tools/movra-sr/reconstruction/PatternFile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/ImageReader.h"
#include "tools/movra-sr/io/ImageWriter.h"

namespace movra::tool {

namespace {

const char* const title = "fixed pattern of a sensor, averaged over bursts; second page: frames that told it; of ";

cv::Mat_<float> imageOf(const std::vector<float>& values, const vision::PatternAverage& pattern) {
  return cv::Mat_<float>(values, true).reshape(1, pattern.height);
}

}  // namespace

std::string patternKind(double gain, bool counts, bool calibrated) {
  char text[64];
  std::snprintf(text, sizeof text, "frames with gain %.9g", gain);
  return calibrated ? "calibrated frames" : counts ? "counts" : text;
}

vision::PatternAverage readPattern(const std::string& file, const std::string& kind) {
  vision::PatternAverage pattern;
  if (!std::filesystem::exists(std::filesystem::symlink_status(file))) {
    return pattern;
  }
  const auto reader = openImage(openFile(file), file);
  const std::string description = reader->description(0);
  if (reader->count() != 2 || !reader->isResult() || description.rfind(title, 0) != 0 ||
      reader->layout(0).size != reader->layout(1).size) {
    throw Failure(ExitCode::badInput, file + ": is no fixed pattern; give a file that --pattern made, or a new name");
  }
  if (description != title + kind) {
    throw Failure(ExitCode::badInput, file + ": is the pattern of " + description.substr(std::string(title).size()) +
                                          ", but these are " + kind + "; keep a pattern for each");
  }
  const cv::Mat_<float> mean = readFrame(*reader, 0, {}).pixels;
  const cv::Mat_<float> weights = readFrame(*reader, 1, {}).pixels;
  pattern.width = mean.cols;
  pattern.height = mean.rows;
  pattern.weights.assign(weights.begin(), weights.end());
  std::transform(mean.begin(), mean.end(), weights.begin(), std::back_inserter(pattern.sums), [&](float m, float w) {
    if (!std::isfinite(m) || !std::isfinite(w) || w < 0 || !std::isfinite(m * w)) {
      throw Failure(ExitCode::badInput, file + ": has values that no pattern has; make it anew");
    }
    return m * w;
  });
  return pattern;
}

void writePattern(OutputFile& file, const vision::PatternAverage& pattern, const std::string& kind) {
  const ImageDescription description{title + kind};
  TiffPages pages(file, {}, 2 * pattern.sums.size() * sizeof(float));
  pages.add(imageOf(pattern.mean(), pattern), description);
  pages.add(imageOf(pattern.weights, pattern), description);
  pages.finish();
}

}  // namespace movra::tool
