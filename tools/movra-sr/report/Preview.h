#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

namespace movra::tool {

struct Palette {
  const char* name;
  int colours;  ///< of cv::applyColorMap, or -1: grey
};

const std::vector<Palette>& palettes();

struct ValueRange {
  float low;
  float high;
};

/// How values become colours.
struct Look {
  std::string palette = "inferno";
  bool isPaletteGiven = false;
  std::optional<ValueRange> range;  ///< else the 0.5th to the 99.5th percentile of the finite pixels
};

/// The range that the look has for the image.
ValueRange rangeOf(const cv::Mat_<float>& image, const Look& look);

/// The image in the look's colours; what is not finite is grey. 8-bit blue, green, red.
cv::Mat_<cv::Vec3b> inColours(const cv::Mat_<float>& image, const Look& look, const ValueRange& range);

/// A picture to look at: the bicubic enlargement of the reference frame beside the reconstruction, both in the same
/// colours, a colour bar with values in the unit, and below both the part that gained most, four times as large. 8-bit
/// blue, green, red.
cv::Mat_<cv::Vec3b> drawPreview(const cv::Mat_<float>& bicubic, const cv::Mat_<float>& reconstruction,
                                const std::string& unit, const Look& look);

/// The image in shades of grey that span its 0.5th to 99.5th percentile, to draw on. 8-bit blue, green, red.
cv::Mat_<cv::Vec3b> drawGrey(const cv::Mat_<float>& image);

}  // namespace movra::tool
