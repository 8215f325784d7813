#include "tools/movra-sr/io/BadPixelFile.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/TextLines.h"
#include "vision/superresolution/SuperResolutionTypes.h"

namespace movra::tool {

namespace {

using Fields = std::vector<std::string>;

const Fields header = {"x", "y", "x1", "y1", "x2", "y2", "x3", "y3", "x4", "y4", "width", "height"};
constexpr std::size_t positionFields = 2;
constexpr std::size_t listFields = 10;
const char* const burstsField = "bursts";
constexpr int mostPixels = 1 << 20;

std::string joined(const Fields& fields) {
  std::string line;
  for (const std::string& field : fields) {
    line += (line.empty() ? "" : ",") + field;
  }
  return line;
}

/// The fields of a line, without blanks around them.
Fields fieldsOf(std::string_view line) {
  Fields fields;
  for (std::size_t start = 0; start <= line.size();) {
    const std::size_t end = std::min(line.find(',', start), line.size());
    std::string_view field = line.substr(start, end - start);
    const std::string_view blanks = " \t\r";
    field.remove_prefix(std::min(field.find_first_not_of(blanks), field.size()));
    field = field.substr(0, field.find_last_not_of(blanks) + 1);
    fields.emplace_back(field);
    start = end + 1;
  }
  return fields;
}

/// Reads the file line by line and remembers where it is, for messages.
class Reader {
 public:
  Reader(const Bytes& bytes, const std::string& name) : file(name), lines(bytes, name) {}

  /// The fields of the next line that is not blank; false at the end of the file.
  bool next(Fields& fields) {
    for (std::string line; lines.next(line);) {
      fields = fieldsOf(line);
      if (fields != Fields{""}) {
        return true;
      }
    }
    return false;
  }

  [[noreturn]] void fail(const std::string& reason) const {
    throw Failure(ExitCode::badInput,
                  file + (lines.number() == 0 ? "" : ", line " + std::to_string(lines.number())) + ": " + reason);
  }

 private:
  std::string file;
  TextLines lines;
};

std::vector<unsigned short> numbersOf(const Fields& fields, const Reader& reader) {
  std::vector<unsigned short> numbers;
  for (const std::string& field : fields) {
    unsigned short number = 0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
    if (error != std::errc() || end != field.data() + field.size()) {
      reader.fail("\"" + field + "\" is not a whole number from 0 to 65535");
    }
    numbers.push_back(number);
  }
  return numbers;
}

}  // namespace

BadPixelFile readBadPixels(const std::string& file) {
  return readBadPixels(*openFile(file), file);
}

BadPixelFile readBadPixels(const Bytes& bytes, const std::string& file) {
  Reader reader(bytes, file);
  Fields names;
  const bool hasHeader = reader.next(names);
  const bool counted = hasHeader && names.back() == burstsField;
  const std::size_t columns = names.size() - (counted ? 1 : 0);
  const bool known = columns == positionFields || columns == listFields || columns == header.size();
  if (!hasHeader || !known ||
      !std::equal(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(columns), header.begin())) {
    reader.fail("is no bad-pixel list; its first line is " + joined(header));
  }

  BadPixelFile result{cv::Mat_<unsigned short>(0, static_cast<int>(listFields)), {}, file, {}};
  for (Fields fields; reader.next(fields);) {
    if (fields.size() != names.size()) {
      reader.fail("has " + std::to_string(fields.size()) + " fields instead of " + std::to_string(names.size()));
    }
    if (result.list.rows == mostPixels) {
      reader.fail("more than " + std::to_string(mostPixels) + " pixels are listed; no sensor has so many bad ones");
    }
    std::vector<unsigned short> numbers = numbersOf(fields, reader);
    if (counted) {
      result.bursts.push_back(numbers.back());
      numbers.pop_back();
    }
    numbers.resize(header.size());
    const cv::Size frameSize(numbers[listFields], numbers[listFields + 1]);
    if (result.list.rows > 0 && frameSize != result.frameSize) {
      reader.fail("is for frames of " + sizeText(frameSize) + ", the lines before for " + sizeText(result.frameSize));
    }
    if (columns == header.size() && !cv::Point(numbers[0], numbers[1]).inside({{}, frameSize})) {
      reader.fail("the pixel lies outside frames of " + sizeText(frameSize));
    }
    result.frameSize = frameSize;
    numbers.resize(listFields);
    result.list.push_back(cv::Mat_<unsigned short>(numbers, true).reshape(1, 1));
  }
  return result;
}

int BadPixelFile::certainPixels() const {
  int count = 0;
  for (int row = 0; row < list.rows; ++row) {
    count += isCertain(row) ? 1 : 0;
  }
  return count;
}

std::string badPixelsAsCsv(const cv::Mat_<unsigned short>& list, cv::Size frameSize, const std::vector<int>& bursts) {
  std::string csv = joined(header) + (bursts.empty() ? "" : std::string(",") + burstsField) + '\n';
  for (int row = 0; row < list.rows; ++row) {
    Fields fields;
    for (int column = 0; column < list.cols; ++column) {
      fields.push_back(std::to_string(list(row, column)));
    }
    fields.push_back(std::to_string(frameSize.width));
    fields.push_back(std::to_string(frameSize.height));
    if (!bursts.empty()) {
      fields.push_back(std::to_string(bursts[static_cast<std::size_t>(row)]));
    }
    csv += joined(fields) + '\n';
  }
  return csv;
}

void requireSameSensor(const BadPixelFile& badPixels, const Frame& frame) {
  const cv::Size size = frame.pixels.size();
  if (!badPixels.frameSize.empty() && badPixels.frameSize != size) {
    throw Failure(ExitCode::badInput, badPixels.name + ": is for frames of " + sizeText(badPixels.frameSize) +
                                          ", but " + frame.name + " is " + sizeText(size) +
                                          "; use the list of this camera");
  }
  for (int row = 0; row < badPixels.list.rows; ++row) {
    const cv::Point pixel(badPixels.list(row, 0), badPixels.list(row, 1));
    if (!pixel.inside({{}, size})) {
      throw Failure(ExitCode::badInput, badPixels.name + ": has a pixel at x " + std::to_string(pixel.x) + ", y " +
                                            std::to_string(pixel.y) + ", outside " + frame.name + " of " +
                                            sizeText(size) + "; use the list of this camera");
    }
  }
}

void markBadPixels(const BadPixelFile& badPixels, Frame& frame) {
  requireSameSensor(badPixels, frame);
  for (int row = 0; row < badPixels.list.rows; ++row) {
    if (badPixels.isCertain(row)) {
      std::memcpy(&frame.pixels(badPixels.list(row, 1), badPixels.list(row, 0)), &vision::flag::invalid, sizeof(float));
    }
  }
}

}  // namespace movra::tool
