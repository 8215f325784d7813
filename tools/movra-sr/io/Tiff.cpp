#include "tools/movra-sr/io/Tiff.h"

#include <tiffio.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

namespace {

/// No sensor is larger; a damaged header often says so.
constexpr std::uint64_t maxPixels = 1U << 26U;

/// Keeps the first complaint of the library about one file.
int keepComplaint(TIFF*, void* user, const char*, const char* format, std::va_list arguments) {
  auto& complaint = *static_cast<std::string*>(user);
  if (complaint.empty()) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    complaint = text;
  }
  return 1;
}

int ignoreWarning(TIFF*, void*, const char*, const char*, std::va_list) {
  return 1;
}

struct CloseTiff {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using TiffHandle = std::unique_ptr<TIFF, CloseTiff>;

TiffHandle openTiff(const std::filesystem::path& path, const char* mode, std::string& complaint) {
  struct FreeOptions {
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
  };
  const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepComplaint, &complaint);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignoreWarning, nullptr);
  return TiffHandle(TIFFOpenExt(path.c_str(), mode, options.get()));
}

/// The fields of a page that decide how to read it.
struct PageLayout {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint16_t samples = 1;
  std::uint16_t bits = 1;
  std::uint16_t format = SAMPLEFORMAT_UINT;
  std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
  std::uint32_t subfile = 0;

  explicit PageLayout(TIFF* tiff) {
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SUBFILETYPE, &subfile);
    if (format == SAMPLEFORMAT_VOID) {
      format = SAMPLEFORMAT_UINT;
    }
  }

  /// OpenCV's type of the page, or -1.
  int type() const {
    if (bits == 8 && format == SAMPLEFORMAT_UINT) {
      return CV_8UC1;
    }
    if (bits == 16 && format == SAMPLEFORMAT_UINT) {
      return CV_16UC1;
    }
    if (bits == 16 && format == SAMPLEFORMAT_INT) {
      return CV_16SC1;
    }
    if (bits == 32 && format == SAMPLEFORMAT_IEEEFP) {
      return CV_32FC1;
    }
    return -1;
  }

  /// Why the page cannot be used, or nothing.
  std::string objection(TIFF* tiff) const {
    if (width == 0 || height == 0 || height > maxPixels / width) {
      return "has an impossible size; the file is damaged, export it again";
    }
    if (samples != 1 || photometric == PHOTOMETRIC_PALETTE) {
      return "is a colour image; export the frames as single-channel grey values";
    }
    if (photometric != PHOTOMETRIC_MINISBLACK) {
      return "does not count up from black; export the frames with black as zero";
    }
    if (type() < 0) {
      return "has " + std::to_string(bits) +
             "-bit values of a kind that is not read; export the frames as 8 or 16-bit integers or 32-bit "
             "floats";
    }
    if (TIFFIsTiled(tiff)) {
      return "is stored in tiles; export the frames in strips";
    }
    return {};
  }
};

}  // namespace

void readTiff(const std::filesystem::path& path, const std::function<void(const cv::Mat&, int)>& receive) {
  std::string complaint;
  int page = 0;
  bool received = false;
  const auto damaged = [&] {
    throw Failure(ExitCode::badInput, path.string() + (page > 0 ? ", page " + std::to_string(page) : "") +
                                          ": not a whole TIFF file (" + complaint + "); copy or export it again");
  };

  const TiffHandle tiff = openTiff(path, "r", complaint);
  if (!tiff || !complaint.empty()) {
    damaged();
  }
  do {
    ++page;
    if (!complaint.empty()) {
      damaged();
    }
    const PageLayout layout(tiff.get());
    if ((layout.subfile & FILETYPE_REDUCEDIMAGE) != 0) {
      continue;
    }
    if (const std::string objection = layout.objection(tiff.get()); !objection.empty()) {
      throw Failure(ExitCode::badInput, path.string() + ", page " + std::to_string(page) + ": " + objection);
    }
    // A row is read into the room of one row, so the two sizes must agree.
    cv::Mat image(static_cast<int>(layout.height), static_cast<int>(layout.width), layout.type());
    if (TIFFScanlineSize64(tiff.get()) != layout.width * image.elemSize()) {
      damaged();
    }
    for (std::uint32_t row = 0; row < layout.height; ++row) {
      if (TIFFReadScanline(tiff.get(), image.ptr(static_cast<int>(row)), row) < 0 || !complaint.empty()) {
        damaged();
      }
    }
    receive(image, page);
    received = true;
  } while (TIFFReadDirectory(tiff.get()) != 0);
  if (!complaint.empty()) {
    damaged();
  }
  if (!received) {
    throw Failure(ExitCode::badInput, path.string() + ": holds previews only; export the image in full size");
  }
}

void writeTiff(const OutputFile& file, const cv::Mat_<float>& image, const std::string& description) {
  std::string complaint;
  TiffHandle tiff = openTiff(file.temporaryPath(), "w", complaint);
  if (!tiff) {
    file.failWriting();
  }
  TIFF* const handle = tiff.get();
  TIFFSetField(handle, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(image.cols));
  TIFFSetField(handle, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(image.rows));
  TIFFSetField(handle, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(handle, TIFFTAG_BITSPERSAMPLE, 32);
  TIFFSetField(handle, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
  TIFFSetField(handle, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(handle, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(handle, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  TIFFSetField(handle, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(handle, 0));
  TIFFSetField(handle, TIFFTAG_SOFTWARE, "movra-sr " MOVRA_SR_VERSION);
  TIFFSetField(handle, TIFFTAG_IMAGEDESCRIPTION, description.c_str());

  cv::Mat_<float> row(1, image.cols);  // the library may change the bytes that it is given
  for (int y = 0; y < image.rows && complaint.empty(); ++y) {
    image.row(y).copyTo(row);
    TIFFWriteScanline(handle, row.ptr(), static_cast<std::uint32_t>(y));
  }
  TIFFFlush(handle);
  tiff.reset();
  if (!complaint.empty()) {
    file.failWriting();
  }
}

}  // namespace movra::tool
