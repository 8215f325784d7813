#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace movra::tool {

/// How a file stores a value. Tables of text count as 64-bit floats.
enum class Sample { uint8, int8, uint16, int16, uint32, int32, float32, float64 };

/// "16-bit integers" and the like, for messages.
std::string nameOf(Sample sample);
std::size_t bytesOf(Sample sample);

/// One image as it was read: rows x columns of 32-bit floats.
struct Frame {
  cv::Mat_<float> pixels;
  std::string name;                 ///< the file, and the page of a multi-page file, for messages
  Sample sample = Sample::float32;  ///< how the file stores it
};

/// Turns stored values into temperatures: gain * value + offset.
struct Scale {
  double gain = 1;
  double offset = 0;

  bool changesNothing() const { return gain == 1 && offset == 0; }
};

/// The extension of a file name in lower case, with its dot.
std::string lowerCaseExtension(const std::string& path);

/// "WIDTHxHEIGHT", for messages.
std::string sizeText(cv::Size size);

/// Replaces each folder by its numbered frames in natural order and keeps everything else as it is. Files without a
/// number in their name (a truth, a mask), results of this tool and copies that a file manager made are no frames; the
/// last two are told in `notes`. Tables count where there are no pictures. Throws Failure for a folder without any, with
/// what there is instead. With `raw` the frames are the numbered .raw, .bin, .dat, .y16 and .gray files.
std::vector<std::string> expandFolders(const std::vector<std::string>& inputs, std::vector<std::string>& notes,
                                       bool raw = false);
std::vector<std::string> expandFolders(const std::vector<std::string>& inputs);

/// Reads a file that holds exactly one image; results of this tool too.
Frame readImage(const std::string& file);

/// Reads one file and hands every image in it, scaled, to `receive` in order.
void readFrames(const std::string& file, const Scale& scale, const std::function<void(Frame&&)>& receive);

}  // namespace movra::tool
