#include "tests/tool/TestImages.h"

#include <gtest/gtest.h>
#include <png.h>
#include <tiffio.h>

#include <cstdio>
#include <memory>

#include "tools/movra-sr/io/ImageReader.h"

namespace movra::test {

void writeTiff(const std::string& path, const std::vector<cv::Mat>& pages, const TiffLayout& layout) {
  TIFF* const tiff = TIFFOpen(path.c_str(), layout.bigEndian ? "wb" : "wl");
  ASSERT_NE(tiff, nullptr) << path;
  for (const cv::Mat& page : pages) {
    const int depth = page.depth();
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.cols);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.rows);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, page.channels());
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8 * static_cast<int>(page.elemSize1()));
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT,
                 depth == CV_32F || depth == CV_64F                     ? SAMPLEFORMAT_IEEEFP
                 : depth == CV_8S || depth == CV_16S || depth == CV_32S ? SAMPLEFORMAT_INT
                                                                        : SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, page.channels() == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, layout.compression);
    constexpr int tileSide = 16;
    if (layout.tiled) {
      TIFFSetField(tiff, TIFFTAG_TILEWIDTH, tileSide);
      TIFFSetField(tiff, TIFFTAG_TILELENGTH, tileSide);
    }
    for (int y = 0; y < page.rows; y += layout.tiled ? tileSide : 1) {
      if (!layout.tiled) {
        cv::Mat row = page.row(y).clone();
        ASSERT_EQ(TIFFWriteScanline(tiff, row.data, static_cast<unsigned>(y)), 1);
        continue;
      }
      for (int x = 0; x < page.cols; x += tileSide) {
        cv::Mat tile = cv::Mat::zeros(tileSide, tileSide, page.type());
        const cv::Rect part = cv::Rect(x, y, tileSide, tileSide) & cv::Rect({}, page.size());
        page(part).copyTo(tile(cv::Rect({}, part.size())));
        ASSERT_GT(TIFFWriteTile(tiff, tile.data, static_cast<unsigned>(x), static_cast<unsigned>(y), 0, 0), 0);
      }
    }
    TIFFWriteDirectory(tiff);
  }
  TIFFClose(tiff);
}

void writePng(const std::string& path, const cv::Mat& image, bool interlaced) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "wb"), std::fclose);
  ASSERT_TRUE(file) << path;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file.get());
  png_set_IHDR(png, info, static_cast<unsigned>(image.cols), static_cast<unsigned>(image.rows),
               8 * static_cast<int>(image.elemSize1()),
               image.channels() == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
               interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
  png_write_info(png, info);
  png_set_swap(png);
  std::vector<png_bytep> rows;
  cv::Mat copy = image.clone();
  for (int y = 0; y < copy.rows; ++y) {
    rows.push_back(copy.ptr(y));
  }
  png_write_image(png, rows.data());
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
}

cv::Size sizeOf(const std::string& path) {
  return tool::openImage(tool::openFile(path), path)->layout(0).size;
}

int channelsOf(const std::string& path) {
  return tool::openImage(tool::openFile(path), path)->layout(0).channels;
}

}  // namespace movra::test
