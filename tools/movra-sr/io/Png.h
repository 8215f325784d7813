#pragma once

#include <filesystem>
#include <opencv2/core.hpp>

#include "tools/movra-sr/io/OutputFile.h"

namespace movra::tool {

/// Reads a grey PNG of 8 or 16 bits as it is stored. Throws Failure naming the file.
cv::Mat readPng(const std::filesystem::path& path);

/// Writes an 8-bit picture of one or three (blue, green, red) channels.
void writePng(const OutputFile& file, const cv::Mat& picture);

}  // namespace movra::tool
