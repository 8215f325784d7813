#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/movra-sr/io/Bytes.h"
#include "tools/movra-sr/io/Frames.h"

namespace movra::tool {

/// The defective pixels of a sensor as a CSV file holds them. The file starts with the line
///
///     x,y,x1,y1,x2,y2,x3,y3,x4,y4,width,height
///
/// and has a line per pixel: its column and row, those of four replacement pixels, and the size of the
/// sensor's frames, which is what keeps the list from being used with another sensor. A replacement at
/// (width, height) has not been found. Files that somebody else made may end each line after the four
/// replacements, or after x,y. A further column, bursts, tells of pixels that bursts showed to be bad in how many they
/// did; one such burst may have been wrong. 0: listed by other means.
struct BadPixelFile {
  cv::Mat_<unsigned short> list;  ///< as the library's BadPixel describes it: 10 columns, a row per pixel
  cv::Size frameSize;             ///< empty when the file does not tell
  std::string name;               ///< the file, for messages
  std::vector<int> bursts = {};   ///< a number per row, or nothing, which means 0 throughout

  int burstsOf(int row) const { return bursts.empty() ? 0 : bursts[static_cast<std::size_t>(row)]; }
  bool isCertain(int row) const { return burstsOf(row) != 1; }
  int certainPixels() const;
};

/// Throws Failure that names the file and the line. Lists of more than a million pixels are refused.
BadPixelFile readBadPixels(const std::string& file);
BadPixelFile readBadPixels(const Bytes& bytes, const std::string& name);

/// The bytes of the file.
std::string badPixelsAsCsv(const cv::Mat_<unsigned short>& list, cv::Size frameSize,
                           const std::vector<int>& bursts = {});

/// Throws Failure when the list belongs to frames of another size.
void requireSameSensor(const BadPixelFile& badPixels, const Frame& frame);

/// Marks the certain ones of the listed pixels of a frame as invalid, which is what the library repairs. Throws Failure when the
/// list belongs to frames of another size.
void markBadPixels(const BadPixelFile& badPixels, Frame& frame);

}  // namespace movra::tool
