#include "tools/movra-sr/io/ImageReader.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/ImageFormats.h"
#include "vision/superresolution/SuperResolutionTypes.h"

namespace movra::tool {

namespace {

constexpr const char* readFormats = "PNG, TIFF, PGM, NPY or a table of numbers (CSV)";

/// A format that users try and that is not read, by how its files begin.
struct OtherFormat {
  const char* start;
  std::size_t length;
  std::size_t offset;
  const char* advice;
};

constexpr OtherFormat otherFormats[] = {
    {"\xFF\xD8\xFF", 3, 0, "is a JPEG picture, whose grey levels are no measured values; export the values themselves"},
    {"BM", 2, 0, "is a BMP picture, whose grey levels are no measured values; export the values themselves"},
    {"GIF8", 4, 0, "is a GIF picture, whose grey levels are no measured values; export the values themselves"},
    {"PK\3\4", 4, 0, "is an archive or a spreadsheet; unpack it, or save the table as CSV"},
    {"\x1F\x8B", 2, 0, "is compressed; unpack it first"},
    {"SIMPLE  =", 9, 0, "is a FITS file; save the frames as float TIFF or NPY"},
    {"MATLAB 5.0", 10, 0, "is a MAT file; save the frames as float TIFF or CSV"},
    {"\x89HDF", 4, 0, "is an HDF5 file; save the frames as float TIFF or NPY"},
    {"RIFF", 4, 0, "is a video; turn it into raw frames first"},
    {"\x1A\x45\xDF\xA3", 4, 0, "is a video; turn it into raw frames first"},
    {"ftyp", 4, 4, "is a video; turn it into raw frames first"},
};

float flagOr(float result, const float& stored) {
  return vision::isFlagged(stored) ? stored : result;
}

/// Pixels of one row become floats. Samples may lie at any address.
template <class Stored>
class Conversion {
 public:
  Conversion(const ImageReader& file, std::size_t number, const ImageLayout& what, const Scale& how)
      : reader(file), index(number), layout(what), scale(how) {}

  void operator()(int row, int column, int count, const void* samples, cv::Mat_<float>& pixels) const {
    const auto* source = static_cast<const unsigned char*>(samples);
    float* target = pixels[row] + column;
    if (layout.channels == 1 && std::is_same_v<Stored, float> && scale.changesNothing()) {
      std::memcpy(target, source, static_cast<std::size_t>(count) * sizeof(float));
      return;
    }
    const std::size_t pixelBytes = sizeof(Stored) * static_cast<std::size_t>(layout.channels);
    for (int i = 0; i < count; ++i, source += pixelBytes) {
      for (int channel = 1; channel < layout.channels; ++channel) {
        if (std::memcmp(source, source + sizeof(Stored) * static_cast<std::size_t>(channel), sizeof(Stored)) != 0) {
          throw Failure(ExitCode::badInput,
                        reader.nameOf(index) + ": is a colour image; export the frames as single-channel grey values");
        }
      }
      Stored value;
      std::memcpy(&value, source, sizeof value);
      target[i] = converted(value);
    }
  }

 private:
  float converted(Stored value) const {
    if (scale.changesNothing()) {
      return static_cast<float>(value);
    }
    const float result = static_cast<float>(scale.gain * static_cast<double>(value) + scale.offset);
    if constexpr (std::is_same_v<Stored, float>) {
      return flagOr(result, value);
    }
    return result;
  }

  const ImageReader& reader;
  std::size_t index;
  ImageLayout layout;
  Scale scale;
};

template <class Stored>
void fill(ImageReader& reader, std::size_t index, const ImageLayout& layout, const Scale& scale,
          cv::Mat_<float>& pixels) {
  const Conversion<Stored> convert(reader, index, layout, scale);
  reader.read(index, [&](int row, int column, int count, const void* samples) {
    convert(row, column, count, samples, pixels);
  });
}

}  // namespace

const char* const resultMark = "movra-sr " MOVRA_SR_VERSION;
const char* const simulationMark = "movra-sr " MOVRA_SR_VERSION " (simulated frame)";

bool isResultMark(const std::string& software) {
  return software.rfind("movra-sr ", 0) == 0 && software.find("simulated frame") == std::string::npos;
}

std::string ImageReader::nameOf(std::size_t index) const {
  return count() > 1 ? name + ", page " + std::to_string(pageNumber(index)) : name;
}

void ImageReader::fail(const std::string& reason) const {
  throw Failure(ExitCode::badInput, name + ": " + reason);
}

void ImageReader::fail(std::size_t index, const std::string& reason) const {
  throw Failure(ExitCode::badInput, nameOf(index) + ": " + reason);
}

cv::Size ImageReader::checkedSize(std::uint64_t width, std::uint64_t height) const {
  if (width == 0 || height == 0 || width > maxPixels || height > maxPixels / width) {
    fail("has an impossible size (" + std::to_string(width) + "x" + std::to_string(height) +
         "; at most 64 million pixels are read); the file is damaged, or no sensor made it");
  }
  return {static_cast<int>(width), static_cast<int>(height)};
}

std::unique_ptr<ImageReader> openImage(std::shared_ptr<const Bytes> bytes, const std::string& name,
                                       const std::optional<RawLayout>& raw) {
  if (bytes->size() == 0) {
    throw Failure(ExitCode::badInput, name + ": is empty; copy or export it again");
  }
  if (raw) {
    return openRaw(std::move(bytes), name, *raw);
  }
  std::string start(4096, '\0');
  start.resize(bytes->read(0, start.data(), start.size()));
  if (start.empty()) {
    throw Failure(ExitCode::badInput, name + ": cannot be read; check the disk");
  }
  if (looksLikePng(start)) {
    return openPng(std::move(bytes), name);
  }
  if (looksLikeTiff(start)) {
    return openTiff(std::move(bytes), name);
  }
  if (looksLikeNpy(start)) {
    return openNpy(std::move(bytes), name);
  }
  if (looksLikePgm(start)) {
    return openPgm(std::move(bytes), name);
  }
  for (const OtherFormat& format : otherFormats) {
    if (start.size() > format.offset && start.compare(format.offset, format.length, format.start, format.length) == 0) {
      throw Failure(ExitCode::badInput, name + ": " + format.advice);
    }
  }
  if (looksLikeText(start)) {
    return openTable(std::move(bytes), name);
  }
  throw Failure(ExitCode::badInput, name + ": neither " + readFormats +
                                        "; export the frames as one of these, or give the size of raw frames");
}

Frame readFrame(ImageReader& reader, std::size_t index, const Scale& scale) {
  const ImageLayout layout = reader.layout(index);
  Frame frame{cv::Mat_<float>(layout.size), reader.nameOf(index), layout.sample};
  switch (layout.sample) {
    case Sample::uint8:
      fill<std::uint8_t>(reader, index, layout, scale, frame.pixels);
      break;
    case Sample::int8:
      fill<std::int8_t>(reader, index, layout, scale, frame.pixels);
      break;
    case Sample::uint16:
      fill<std::uint16_t>(reader, index, layout, scale, frame.pixels);
      break;
    case Sample::int16:
      fill<std::int16_t>(reader, index, layout, scale, frame.pixels);
      break;
    case Sample::uint32:
      fill<std::uint32_t>(reader, index, layout, scale, frame.pixels);
      break;
    case Sample::int32:
      fill<std::int32_t>(reader, index, layout, scale, frame.pixels);
      break;
    case Sample::float32:
      fill<float>(reader, index, layout, scale, frame.pixels);
      break;
    case Sample::float64:
      fill<double>(reader, index, layout, scale, frame.pixels);
      break;
  }
  return frame;
}

bool readPlainRows(const Bytes& bytes, std::uint64_t offset, const ImageLayout& layout, bool bigEndian,
                   const Piece& receive) {
  const std::size_t sampleBytes = bytesOf(layout.sample);
  const std::size_t rowBytes = sampleBytes * static_cast<std::size_t>(layout.size.width);
  std::vector<unsigned char> row(rowBytes);
  for (int y = 0; y < layout.size.height; ++y, offset += rowBytes) {
    if (bytes.read(offset, row.data(), rowBytes) != rowBytes) {
      return false;
    }
    if (bigEndian) {
      for (auto sample = row.begin(); sample != row.end(); sample += static_cast<std::ptrdiff_t>(sampleBytes)) {
        std::reverse(sample, sample + static_cast<std::ptrdiff_t>(sampleBytes));
      }
    }
    receive(y, 0, layout.size.width, row.data());
  }
  return true;
}

}  // namespace movra::tool
