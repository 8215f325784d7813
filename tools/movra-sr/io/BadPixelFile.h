#pragma once

#include <opencv2/core.hpp>
#include <string>

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
/// replacements, or after x,y.
struct BadPixelFile {
  cv::Mat_<unsigned short> list;  ///< as the library's BadPixel describes it: 10 columns, a row per pixel
  cv::Size frameSize;             ///< empty when the file does not tell
  std::string name;               ///< the file, for messages
};

/// Throws Failure that names the file and the line. Lists of more than a million pixels are refused.
BadPixelFile readBadPixels(const std::string& file);
BadPixelFile readBadPixels(const Bytes& bytes, const std::string& name);

/// The bytes of the file.
std::string badPixelsAsCsv(const cv::Mat_<unsigned short>& list, cv::Size frameSize);

/// Marks the listed pixels of a frame as invalid, which is what the library repairs. Throws Failure when the
/// list belongs to frames of another size.
void markBadPixels(const BadPixelFile& badPixels, Frame& frame);

}  // namespace movra::tool
