#include "movra/exp/ImageIO.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "movra/Exception.h"

namespace movra::exp {

namespace {

constexpr int writeMode = 2;

std::string fileName(int number, const std::string& name) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%04d", number);
  std::string result = digits;
  if (!name.empty()) {
    result += "_" + name;
  }
  std::replace(result.begin(), result.end(), '/', '_');
  return result + ".pfm";
}

/// The header's last number gives the byte order: negative is little-endian.
const char* byteOrder() {
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? "-1.0" : "1.0";
}

bool writeFloatMap(const cv::Mat& image, const std::filesystem::path& path) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << "Pf\n" << image.cols << ' ' << image.rows << '\n' << byteOrder() << '\n';
  const auto rowBytes = static_cast<std::streamsize>(sizeof(float)) * image.cols;
  for (int row = image.rows - 1; row >= 0; --row) {
    file.write(image.ptr<char>(row), rowBytes);
  }
  file.close();
  return !file.fail();
}

}  // namespace

ImageIO::ImageIO(int mode_) : mode(mode_) {}

bool ImageIO::open(const std::string& folder_) {
  close();
  if (mode != writeMode || folder_.empty()) {
    return false;
  }
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  if (!std::filesystem::is_directory(folder_, error)) {
    return false;
  }
  folder = folder_;
  nextNumber = 0;
  opened = true;
  return true;
}

void ImageIO::write(const cv::Mat& image, const std::string& name) {
  const std::string file = fileName(nextNumber, name);
  if (!opened) {
    MOVRA_THROW("Cannot write " + file + ": no folder is open");
  }
  const std::filesystem::path path = std::filesystem::path(folder) / file;
  if (image.empty() || image.dims != 2 || image.channels() != 1) {
    MOVRA_THROW("Cannot write " + path.string() + ": not an image of one channel");
  }
  cv::Mat values = image;
  if (image.depth() != CV_32F) {
    image.convertTo(values, CV_32F);
  }
  if (!writeFloatMap(values, path)) {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    MOVRA_THROW("Cannot write " + path.string());
  }
  ++nextNumber;
}

}  // namespace movra::exp
