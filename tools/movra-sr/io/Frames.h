#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace movra::tool {

/// One image as it was read: rows x columns of 32-bit floats.
struct Frame {
  cv::Mat_<float> pixels;
  std::string name;  ///< the file, and the page of a multi-page file, for messages
};

/// Turns integer counts into temperatures: gain * value + offset.
struct Scale {
  double gain = 1;
  double offset = 0;
};

/// The extension of a file name in lower case, with its dot.
std::string lowerCaseExtension(const std::string& path);

/// "WIDTHxHEIGHT", for messages.
std::string sizeText(cv::Size size);

/// Replaces each folder by its numbered PNG and TIFF files in natural order and keeps everything else as it
/// is. Files without a number in their name (a truth, a mask) are no frames. Throws Failure for a folder
/// without any.
std::vector<std::string> expandFolders(const std::vector<std::string>& inputs);

/// Reads one file and hands every image in it, scaled, to `receive` in order. What the file is, its first
/// bytes decide. Throws Failure naming the file.
void readFrames(const std::string& file, const Scale& scale, const std::function<void(Frame&&)>& receive);

/// Reads a file that holds exactly one image.
Frame readImage(const std::string& file);

}  // namespace movra::tool
