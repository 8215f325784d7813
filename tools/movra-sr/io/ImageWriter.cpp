#include "tools/movra-sr/io/ImageWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/ImageReader.h"
#include "tools/movra-sr/io/StoredValues.h"

namespace movra::tool {

namespace {

std::string textOf(double value) {
  std::array<char, 64> text{};
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), end};
}

void writeNpy(const OutputFile& file, const cv::Mat_<float>& image, const ImageDescription& description) {
  std::string header = "{'descr': '<f4', 'fortran_order': False, 'shape': (" + std::to_string(image.rows) + ", " +
                       std::to_string(image.cols) + "), } # " + signatureOf(description);
  constexpr std::size_t alignment = 64;
  constexpr std::size_t preamble = 10;
  while ((preamble + header.size() + 1) % alignment != 0) {
    header += ' ';
  }
  header += '\n';
  std::string start("\x93NUMPY\1\0", 8);
  start += static_cast<char>(header.size() & 0xFFU);
  start += static_cast<char>(header.size() >> 8U);
  file.write(start + header);
  for (int y = 0; y < image.rows; ++y) {
    file.write(image[y], static_cast<std::size_t>(image.cols) * sizeof(float));
  }
}

void writeCsv(const OutputFile& file, const cv::Mat_<float>& image, const ImageDescription& description) {
  std::string text = std::string("# ") + signatureOf(description) + '\n';
  for (std::size_t start = 0; start < description.text.size();) {
    const std::size_t end = std::min(description.text.find('\n', start), description.text.size());
    text += "# " + description.text.substr(start, end - start) + '\n';
    start = end + 1;
  }
  std::array<char, 32> number{};
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      const auto [end, error] = std::to_chars(number.data(), number.data() + number.size(), image(y, x));
      text.append(number.data(), end);
      text += x + 1 < image.cols ? ',' : '\n';
    }
    file.write(text);
    text.clear();
  }
}

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw Failure(ExitCode::usage, path + ": " + reason);
}

}  // namespace

std::string signatureOf(const ImageDescription& description) {
  return description.simulated ? simulationMark : resultMark;
}

std::string fullText(const ImageDescription& description, const ImageEncoding& encoding) {
  if (encoding.sample == Sample::float32) {
    return description.text;
  }
  return "value = " + textOf(encoding.scale.gain) + " * stored + " + textOf(encoding.scale.offset) + "\n" +
         description.text;
}

void storeRow(const float* values, int count, const ImageEncoding& encoding, void* stored) {
  const double low = encoding.sample == Sample::int16 ? -32768 : 0;
  const double high = encoding.sample == Sample::int16 ? 32767 : 65535;
  for (int x = 0; x < count; ++x) {
    const double exact = (static_cast<double>(values[x]) - encoding.scale.offset) / encoding.scale.gain;
    const double whole = std::isfinite(exact) ? std::clamp(std::nearbyint(exact), low, high) : 0;
    if (encoding.sample == Sample::int16) {
      static_cast<std::int16_t*>(stored)[x] = static_cast<std::int16_t>(whole);
    } else {
      static_cast<std::uint16_t*>(stored)[x] = static_cast<std::uint16_t>(whole);
    }
  }
}

bool isImageName(const std::string& path) {
  const std::string extension = lowerCaseExtension(path);
  for (const char* known : {".tif", ".tiff", ".png", ".npy", ".csv"}) {
    if (extension == known) {
      return true;
    }
  }
  return false;
}

void requireWritable(const std::string& path, const ImageEncoding& encoding) {
  if (!isImageName(path)) {
    refuse(path, "images are written as .tiff, .png, .npy or .csv; give the name one of these endings");
  }
  const std::string extension = lowerCaseExtension(path);
  const bool floats = encoding.sample == Sample::float32;
  if (!floats && encoding.sample != Sample::uint16 && encoding.sample != Sample::int16) {
    refuse(path, "images are written as 32-bit floats or 16-bit integers, not as " + nameOf(encoding.sample));
  }
  if (!floats &&
      !(encoding.scale.gain != 0 && std::isfinite(encoding.scale.gain) && std::isfinite(encoding.scale.offset))) {
    refuse(path, "a scale with a gain of 0 cannot be stored");
  }
  if (extension == ".png" && encoding.sample != Sample::uint16) {
    refuse(path, "a PNG file holds integers from 0 on; name it .tiff, or ask for 16-bit integers");
  }
  if ((extension == ".npy" || extension == ".csv") && !floats) {
    refuse(path, "is written as floats; name it .tiff or .png for 16-bit integers");
  }
}

ImageEncoding sixteenBitsFor(const cv::Mat_<float>& image) {
  double low = 0;
  double high = 0;
  bool found = false;
  for (const float value : image) {
    if (std::isfinite(value)) {
      const auto exact = static_cast<double>(value);
      low = found ? std::min(low, exact) : exact;
      high = found ? std::max(high, exact) : exact;
      found = true;
    }
  }
  // 0 is left to values that are not finite, and the last level to rounding of the offset.
  const double least = std::max((high - low) / 65533, std::max(std::abs(low), std::abs(high)) * 1e-7);
  double gain = 1e-6;
  if (least > 0) {
    const double decade = std::pow(10, std::floor(std::log10(least)));
    gain = least <= decade ? decade : least <= 2 * decade ? 2 * decade : least <= 5 * decade ? 5 * decade : 10 * decade;
  }
  return {Sample::uint16, {gain, (std::floor(low / gain) - 1) * gain}};
}

void writeImage(OutputFile& file, const cv::Mat_<float>& image, const ImageDescription& description,
                const ImageEncoding& encoding) {
  const std::string path = file.path().string();
  requireWritable(path, encoding);
  const std::string extension = lowerCaseExtension(path);
  if (extension == ".npy") {
    writeNpy(file, image, description);
  } else if (extension == ".csv") {
    writeCsv(file, image, description);
  } else if (extension == ".png") {
    writeGreyPng(file, image, description, encoding);
  } else {
    TiffPages pages(file, encoding, image.total() * sizeof(float));
    pages.add(image, description);
    pages.finish();
  }
}

}  // namespace movra::tool
