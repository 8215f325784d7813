#pragma once

#include <filesystem>
#include <functional>
#include <opencv2/core.hpp>
#include <string>

#include "tools/movra-sr/io/OutputFile.h"

namespace movra::tool {

/// Reads a TIFF file page by page and hands each page (rows x columns, one channel of 8 or 16 bits or 32-bit
/// float) with its number, counted from 1, to `receive`. Reduced copies of pages are left out. Any complaint
/// of the TIFF library is a Failure that names the file and the page, a file cut short included.
void readTiff(const std::filesystem::path& path, const std::function<void(const cv::Mat&, int page)>& receive);

/// Writes one page of 32-bit floats, uncompressed, bit for bit. The description goes into the file's
/// description tag.
void writeTiff(const OutputFile& file, const cv::Mat_<float>& image, const std::string& description);

}  // namespace movra::tool
