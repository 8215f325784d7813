#pragma once

#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/io/Bytes.h"
#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/RawReader.h"

namespace movra::tool {

/// No sensor has more pixels; a damaged header often says so. The one limit for all formats, checked on the header
/// before anything is decoded.
constexpr std::uint64_t maxPixels = std::uint64_t{1} << 26U;

/// What the header of an image says.
struct ImageLayout {
  cv::Size size;
  Sample sample = Sample::float32;
  int channels = 1;  ///< of more than one, all have to be equal
};

/// Receives `count` pixels of a row, from column `column` on, in the machine's byte order.
using Piece = std::function<void(int row, int column, int count, const void* samples)>;

/// A file of one format with one or more images of one channel. Values are decoded a few rows at a time, so that an
/// image takes hardly more memory than its pixels. Opening throws Failure, naming the file, unless the header makes
/// sense; reading throws when the values do not.
class ImageReader {
 public:
  virtual ~ImageReader() = default;

  virtual std::size_t count() const = 0;
  virtual ImageLayout layout(std::size_t index) const = 0;
  virtual void read(std::size_t index, const Piece& receive) = 0;

  /// Number that the user knows the image by, counted from 1.
  virtual std::size_t pageNumber(std::size_t index) const { return index + 1; }
  /// Whether this tool wrote it as a result.
  virtual bool isResult() const { return false; }
  /// The text that the file holds about the image, or nothing; of formats in which this tool looks for it.
  virtual std::string description(std::size_t /*index*/) const { return {}; }
  /// What was done about the file that the user should know of, without its name; or nothing.
  virtual std::string note() const { return {}; }

  /// The file, and the page where there are several.
  std::string nameOf(std::size_t index) const;

 protected:
  ImageReader(std::shared_ptr<const Bytes> source, std::string fileName)
      : bytes(std::move(source)), name(std::move(fileName)) {}

  [[noreturn]] void fail(const std::string& reason) const;
  [[noreturn]] void fail(std::size_t index, const std::string& reason) const;
  /// Fails for no pixels and for more than maxPixels.
  cv::Size checkedSize(std::uint64_t width, std::uint64_t height) const;

  const std::shared_ptr<const Bytes> bytes;
  const std::string name;
};

/// Opens an image file of any format. With `raw`, the bytes are headerless raw data. Throws Failure naming the file.
std::unique_ptr<ImageReader> openImage(std::shared_ptr<const Bytes> bytes, const std::string& name,
                                       const std::optional<RawLayout>& raw = {});

/// One image as floats, scaled. Flag values among floats stay what they are, and unscaled floats keep every bit.
Frame readFrame(ImageReader& reader, std::size_t index, const Scale& scale);

/// How this tool signs its results in their Software field; `isResultMark` tells a result from a simulated frame.
extern const char* const resultMark;
extern const char* const simulationMark;
bool isResultMark(const std::string& software);

}  // namespace movra::tool
