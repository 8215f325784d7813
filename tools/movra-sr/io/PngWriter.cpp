#include <png.h>

#include <csetjmp>
#include <vector>

#include "tools/movra-sr/io/ImageReader.h"
#include "tools/movra-sr/io/PngCallbacks.h"
#include "tools/movra-sr/io/StoredValues.h"

namespace movra::tool {

namespace {

/// Collects what libpng makes; the file is written afterwards, where failures may be thrown.
void collect(png_structp png, png_bytep bytes, std::size_t count) {
  auto& encoded = *static_cast<std::vector<png_byte>*>(png_get_io_ptr(png));
  try {
    encoded.insert(encoded.end(), bytes, bytes + count);
  } catch (const std::bad_alloc&) {
    png_error(png, "no memory");
  }
}

void flushNothing(png_structp) {}

/// What libpng is told about a picture.
struct Header {
  png_uint_32 width;
  png_uint_32 height;
  int bits;
  int colour;
};

/// A file as libpng makes it. Errors are long jumps, which must not pass over destructors: each operation here is
/// plain calls between setjmp and the return.
class PngOutput {
 public:
  PngOutput() {
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, jumpOut, ignoreWarning);
    info = png == nullptr ? nullptr : png_create_info_struct(png);
    if (info == nullptr) {
      png_destroy_write_struct(&png, nullptr);
      throw std::bad_alloc();
    }
    png_set_write_fn(png, &encoded, collect, flushNothing);
  }
  ~PngOutput() { png_destroy_write_struct(&png, &info); }
  PngOutput(const PngOutput&) = delete;
  PngOutput& operator=(const PngOutput&) = delete;

  bool start(const Header& header, png_textp texts, int textCount) {
    if (setjmp(png_jmpbuf(png)) != 0) {
      return false;
    }
    png_set_user_limits(png, maxPixels, maxPixels);
    png_set_IHDR(png, info, header.width, header.height, header.bits, header.colour, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_text(png, info, texts, textCount);
    png_write_info(png, info);
    // Rows are given in the machine's byte order, and colours as blue, green, red.
    png_set_swap(png);
    png_set_bgr(png);
    return true;
  }

  bool writeRow(png_const_bytep row) {
    if (setjmp(png_jmpbuf(png)) != 0) {
      return false;
    }
    png_write_row(png, row);
    return true;
  }

  bool end() {
    if (setjmp(png_jmpbuf(png)) != 0) {
      return false;
    }
    png_write_end(png, info);
    return true;
  }

  /// Hands what is there so far to the file.
  void moveTo(const OutputFile& file) {
    file.write(encoded.data(), encoded.size());
    encoded.clear();
  }

 private:
  png_structp png = nullptr;
  png_infop info = nullptr;
  std::vector<png_byte> encoded;
};

/// Writes the rows that `rowAt` gives.
template <class RowAt>
void writeRows(const OutputFile& file, const Header& header, const ImageDescription& description, std::string text,
               RowAt rowAt) {
  std::string software = signatureOf(description);
  char softwareKey[] = "Software";
  char textKey[] = "Description";
  png_text texts[2] = {};
  texts[0].compression = PNG_TEXT_COMPRESSION_NONE;
  texts[0].key = softwareKey;
  texts[0].text = software.data();
  texts[1].compression = PNG_ITXT_COMPRESSION_NONE;
  texts[1].key = textKey;
  texts[1].text = text.data();
  PngOutput png;
  bool good = png.start(header, texts, text.empty() ? 1 : 2);
  for (png_uint_32 y = 0; good && y < header.height; ++y) {
    good = png.writeRow(rowAt(static_cast<int>(y)));
    png.moveTo(file);
  }
  if (!good || !png.end()) {
    file.fail("the picture cannot be encoded");
  }
  png.moveTo(file);
}

Header headerOf(const cv::Mat& picture, int bits, int colour) {
  return {static_cast<png_uint_32>(picture.cols), static_cast<png_uint_32>(picture.rows), bits, colour};
}

}  // namespace

void writePng(OutputFile& file, const cv::Mat& picture) {
  const int colour = picture.channels() == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY;
  writeRows(file, headerOf(picture, 8, colour), {}, {}, [&](int y) { return picture.ptr(y); });
}

void writeGreyPng(const OutputFile& file, const cv::Mat_<float>& image, const ImageDescription& description,
                  const ImageEncoding& encoding) {
  std::vector<png_byte> row(2 * static_cast<std::size_t>(image.cols));
  writeRows(file, headerOf(image, 16, PNG_COLOR_TYPE_GRAY), description, fullText(description, encoding), [&](int y) {
    storeRow(image[y], image.cols, encoding, row.data());
    return row.data();
  });
}

}  // namespace movra::tool
