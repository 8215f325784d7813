#include "tools/movra-sr/io/Frames.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/NaturalOrder.h"
#include "tools/movra-sr/io/Png.h"
#include "tools/movra-sr/io/Tiff.h"
#include "vision/superresolution/SuperResolutionTypes.h"

namespace movra::tool {

namespace {

namespace fs = std::filesystem;

enum class Format { png, tiff };

Format formatOf(const fs::path& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) {
    throw Failure(ExitCode::badInput, path.string() + ": no such file; check the name");
  }
  if (fs::is_directory(status)) {
    throw Failure(ExitCode::badInput, path.string() + ": is a folder; give a file");
  }
  // The format is known from the first bytes, and these can be read a second time in a file only.
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw Failure(ExitCode::badInput, path.string() + ": is a pipe or device; save the image to a file first");
  }
  std::ifstream file(path, std::ios::binary);
  std::array<char, 8> start{};
  file.read(start.data(), start.size());
  if (file.bad() || !file.is_open()) {
    throw Failure(ExitCode::badInput, path.string() + ": cannot be read; check its permissions");
  }
  if (file.gcount() == 0) {
    throw Failure(ExitCode::badInput, path.string() + ": is empty; copy or export it again");
  }
  const auto startsWith = [&](const char* bytes, std::size_t count) {
    return std::memcmp(start.data(), bytes, count) == 0;
  };
  if (startsWith("\x89PNG\r\n\x1a\n", 8)) {
    return Format::png;
  }
  if (startsWith("II*\0", 4) || startsWith("MM\0*", 4) || startsWith("II+\0", 4) || startsWith("MM\0+", 4)) {
    return Format::tiff;
  }
  throw Failure(ExitCode::badInput, path.string() + ": neither PNG nor TIFF; export the frames as one of these");
}

/// The values as 32-bit floats. Flag values stay what they are, and unscaled floats keep every bit.
cv::Mat_<float> scaled(const cv::Mat& image, const Scale& scale) {
  if (image.depth() == CV_32F && scale.gain == 1 && scale.offset == 0) {
    return image;
  }
  cv::Mat_<double> exact;
  image.convertTo(exact, CV_64F, scale.gain, scale.offset);
  cv::Mat_<float> result;
  exact.convertTo(result, CV_32F);
  if (image.depth() != CV_32F) {
    return result;
  }
  for (int y = 0; y < image.rows; ++y)
    for (int x = 0; x < image.cols; ++x) {
      std::uint32_t bits = 0;
      std::memcpy(&bits, image.ptr<float>(y) + x, sizeof bits);
      if (bits == vision::flag::overRange || bits == vision::flag::underRange || bits == vision::flag::invalid ||
          bits == vision::flag::invalidToo) {
        std::memcpy(result[y] + x, &bits, sizeof bits);
      }
    }
  return result;
}

bool isNumberedPicture(const fs::directory_entry& entry) {
  const std::string name = entry.path().filename().string();
  const std::string extension = lowerCaseExtension(name);
  const std::string stem = entry.path().stem().string();
  return name.front() != '.' && (extension == ".png" || extension == ".tif" || extension == ".tiff") &&
         std::any_of(stem.begin(), stem.end(), [](unsigned char c) { return std::isdigit(c); }) &&
         !entry.is_directory();
}

std::vector<std::string> numberedPictures(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    if (isNumberedPicture(*entry)) {
      names.push_back(entry->path().string());
    }
  if (error) {
    throw Failure(ExitCode::badInput, folder.string() + ": cannot be listed; check its permissions");
  }
  if (names.empty()) {
    throw Failure(ExitCode::badInput,
                  folder.string() + ": holds no numbered PNG or TIFF files; name the frames one by one");
  }
  std::sort(names.begin(), names.end(), naturalLess);
  return names;
}

}  // namespace

std::string lowerCaseExtension(const std::string& path) {
  std::string extension = fs::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

std::string sizeText(cv::Size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

std::vector<std::string> expandFolders(const std::vector<std::string>& inputs) {
  std::vector<std::string> files;
  for (const std::string& input : inputs) {
    std::error_code error;
    if (fs::is_directory(input, error)) {
      const auto names = numberedPictures(input);
      files.insert(files.end(), names.begin(), names.end());
    } else {
      files.push_back(input);
    }
  }
  return files;
}

void readFrames(const std::string& file, const Scale& scale, const std::function<void(Frame&&)>& receive) {
  const auto deliver = [&](const cv::Mat& image, const std::string& name) { receive({scaled(image, scale), name}); };

  if (formatOf(file) == Format::png) {
    deliver(readPng(file), file);
    return;
  }
  // The first page is held back until it is known whether there are more: only then do names need page
  // numbers.
  cv::Mat first;
  readTiff(file, [&](const cv::Mat& image, int page) {
    const auto pageName = [&](int number) { return file + ", page " + std::to_string(number); };
    if (page == 1) {
      first = image;
      return;
    }
    if (!first.empty()) {
      deliver(first, pageName(1));
    }
    first.release();
    deliver(image, pageName(page));
  });
  if (!first.empty()) {
    deliver(first, file);
  }
}

Frame readImage(const std::string& file) {
  Frame image;
  readFrames(file, {}, [&](Frame&& frame) {
    if (!image.pixels.empty()) {
      throw Failure(ExitCode::badInput, file + ": holds more than one page; give a file with one image");
    }
    image = std::move(frame);
  });
  return image;
}

}  // namespace movra::tool
