#include "tools/movra-sr/io/Frames.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace movra::tool {

std::string nameOf(Sample sample) {
  switch (sample) {
    case Sample::uint8:
    case Sample::int8:
      return "8-bit integers";
    case Sample::uint16:
    case Sample::int16:
      return "16-bit integers";
    case Sample::uint32:
    case Sample::int32:
      return "32-bit integers";
    case Sample::float32:
      return "32-bit floats";
    case Sample::float64:
      break;
  }
  return "64-bit floats";
}

std::size_t bytesOf(Sample sample) {
  switch (sample) {
    case Sample::uint8:
    case Sample::int8:
      return 1;
    case Sample::uint16:
    case Sample::int16:
      return 2;
    case Sample::uint32:
    case Sample::int32:
    case Sample::float32:
      return 4;
    case Sample::float64:
      break;
  }
  return 8;
}

std::string lowerCaseExtension(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

std::string sizeText(cv::Size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

}  // namespace movra::tool
