#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace movra::test {

/// Ways to store a TIFF file that the tool reads and does not write.
struct TiffLayout {
  bool tiled = false;
  bool bigEndian = false;
  int compression = 1;  // COMPRESSION_NONE
};

/// Writes pages of any type that TIFF knows, with one or three channels.
void writeTiff(const std::string& path, const std::vector<cv::Mat>& pages, const TiffLayout& layout = {});

/// Writes 8 or 16 bits with one or three channels.
void writePng(const std::string& path, const cv::Mat& image, bool interlaced = false);

/// The size of the image in a file and its channels (1 for grey).
cv::Size sizeOf(const std::string& path);
int channelsOf(const std::string& path);

}  // namespace movra::test
