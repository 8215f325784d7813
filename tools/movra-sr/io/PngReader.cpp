#include <png.h>

#include <array>
#include <csetjmp>
#include <cstring>
#include <vector>

#include "tools/movra-sr/io/ImageFormats.h"
#include "tools/movra-sr/io/PngCallbacks.h"

namespace movra::tool {

namespace {

constexpr std::size_t signatureLength = 8;

/// Texts and the like in a file are small; a hostile one claims otherwise.
constexpr std::uint32_t largestChunk = 8U << 20U;

/// What the callbacks of libpng need.
struct Input {
  const Bytes* bytes = nullptr;
  std::uint64_t at = 0;
};

void readInput(png_structp png, png_bytep target, std::size_t count) {
  auto& input = *static_cast<Input*>(png_get_io_ptr(png));
  if (input.bytes->read(input.at, target, count) != count) {
    png_error(png, "the file ends early");
  }
  input.at += count;
}

/// A file as libpng has it open. libpng reports errors by a long jump, which must not pass over destructors: each
/// operation here is a plain call between setjmp and the return.
class PngFile {
 public:
  explicit PngFile(const Bytes& bytes) {
    input.bytes = &bytes;
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, jumpOut, ignoreWarning);
    info = png == nullptr ? nullptr : png_create_info_struct(png);
    if (info == nullptr) {
      png_destroy_read_struct(&png, nullptr, nullptr);
      throw std::bad_alloc();
    }
    png_set_read_fn(png, &input, readInput);
    png_set_user_limits(png, maxPixels, maxPixels);
  }
  ~PngFile() { png_destroy_read_struct(&png, &info, nullptr); }
  PngFile(const PngFile&) = delete;
  PngFile& operator=(const PngFile&) = delete;

  bool readHeader() {
    if (setjmp(png_jmpbuf(png)) != 0) {
      return false;
    }
    png_read_info(png, info);
    return true;
  }

  /// Prepares for rows of plain samples in the machine's byte order.
  bool startRows() {
    if (setjmp(png_jmpbuf(png)) != 0) {
      return false;
    }
    png_set_expand_gray_1_2_4_to_8(png);
    png_set_swap(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    return true;
  }

  bool readRow(png_bytep row) {
    if (setjmp(png_jmpbuf(png)) != 0) {
      return false;
    }
    png_read_row(png, row, nullptr);
    return true;
  }

  bool readRows(png_bytepp rows) {
    if (setjmp(png_jmpbuf(png)) != 0) {
      return false;
    }
    png_read_image(png, rows);
    return true;
  }

  /// Reads what stands behind the image; a file without its end was cut short.
  bool readEnd() {
    if (setjmp(png_jmpbuf(png)) != 0) {
      return false;
    }
    png_read_end(png, nullptr);
    return true;
  }

  png_structp png = nullptr;
  png_infop info = nullptr;

 private:
  Input input;
};

class PngReader : public ImageReader {
 public:
  PngReader(SharedBytes source, const std::string& file) : ImageReader(std::move(source), file) {
    checkChunks();
    PngFile png(*bytes);
    if (!png.readHeader()) {
      damaged();
    }
    image.size = checkedSize(png_get_image_width(png.png, png.info), png_get_image_height(png.png, png.info));
    readText(png);
    const int colour = png_get_color_type(png.png, png.info);
    if (colour == PNG_COLOR_TYPE_PALETTE) {
      fail("is a colour image; export the frames as single-channel grey values");
    }
    if ((colour & PNG_COLOR_MASK_ALPHA) != 0) {
      fail("has transparent pixels; export the frames as single-channel grey values");
    }
    image.channels = colour == PNG_COLOR_TYPE_RGB ? 3 : 1;
    image.sample = png_get_bit_depth(png.png, png.info) == 16 ? Sample::uint16 : Sample::uint8;
  }

  std::size_t count() const override { return 1; }
  ImageLayout layout(std::size_t) const override { return image; }
  bool isResult() const override { return result; }

  void read(std::size_t, const Piece& receive) override {
    PngFile png(*bytes);
    if (!png.readHeader() || !png.startRows()) {
      damaged();
    }
    const std::size_t rowBytes = png_get_rowbytes(png.png, png.info);
    const auto height = static_cast<std::size_t>(image.size.height);
    if (rowBytes !=
        static_cast<std::size_t>(image.size.width) * bytesOf(image.sample) * static_cast<std::size_t>(image.channels)) {
      damaged();
    }
    // The passes of an interlaced image need all of it.
    const bool interlaced = png_get_interlace_type(png.png, png.info) != PNG_INTERLACE_NONE;
    std::vector<png_byte> samples(interlaced ? rowBytes * height : rowBytes);
    if (interlaced) {
      std::vector<png_bytep> rows(height);
      for (std::size_t y = 0; y < height; ++y) {
        rows[y] = samples.data() + y * rowBytes;
      }
      if (!png.readRows(rows.data())) {
        damaged();
      }
    }
    for (std::size_t y = 0; y < height; ++y) {
      if (!interlaced && !png.readRow(samples.data())) {
        damaged();
      }
      receive(static_cast<int>(y), 0, image.size.width, samples.data() + (interlaced ? y * rowBytes : 0));
    }
    if (!png.readEnd()) {
      damaged();
    }
  }

 private:
  /// libpng takes memory for what a chunk claims to hold, so the claims are checked first.
  void checkChunks() const {
    constexpr std::size_t lengthAndName = 8;
    constexpr std::size_t checksum = 4;
    std::array<unsigned char, lengthAndName> head{};
    std::string chunkName;
    for (std::uint64_t at = signatureLength; chunkName != "IEND";) {
      if (bytes->read(at, head.data(), head.size()) != head.size()) {
        damaged();
      }
      const std::uint32_t length = static_cast<std::uint32_t>(head[0]) << 24U |
                                   static_cast<std::uint32_t>(head[1]) << 16U |
                                   static_cast<std::uint32_t>(head[2]) << 8U | head[3];
      chunkName.assign(head.begin() + 4, head.end());
      at += lengthAndName + length + checksum;
      if (at > bytes->size() || (length > largestChunk && chunkName != "IDAT")) {
        damaged();
      }
    }
  }

  void readText(const PngFile& png) {
    png_textp texts = nullptr;
    int count = 0;
    png_get_text(png.png, png.info, &texts, &count);
    for (int i = 0; i < count; ++i) {
      if (std::strcmp(texts[i].key, "Software") == 0) {
        result = isResultMark(texts[i].text);
      }
    }
  }

  [[noreturn]] void damaged() const { fail("not a whole PNG file; copy or export it again"); }

  ImageLayout image;
  bool result = false;
};

}  // namespace

bool looksLikePng(const std::string& start) {
  return start.compare(0, signatureLength, "\x89PNG\r\n\x1a\n") == 0;
}

std::unique_ptr<ImageReader> openPng(SharedBytes bytes, const std::string& name) {
  return std::make_unique<PngReader>(std::move(bytes), name);
}

}  // namespace movra::tool
