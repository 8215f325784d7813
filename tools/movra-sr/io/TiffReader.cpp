#include <algorithm>
#include <array>
#include <vector>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/ImageFormats.h"
#include "tools/movra-sr/io/TiffHandle.h"

namespace movra::tool {

namespace {

/// A tile may have more pixels than a small image, but not many more.
constexpr std::uint64_t largestSmallTile = std::uint64_t{1} << 20U;

/// The fields of a page that decide how to read it.
struct PageLayout {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint16_t samples = 1;
  std::uint16_t bits = 1;
  std::uint16_t format = SAMPLEFORMAT_UINT;
  std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
  std::uint16_t planes = PLANARCONFIG_CONTIG;
  std::uint32_t subfile = 0;

  explicit PageLayout(TIFF* tiff) {
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planes);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SUBFILETYPE, &subfile);
    if (format == SAMPLEFORMAT_VOID) {
      format = SAMPLEFORMAT_UINT;
    }
  }

  std::optional<Sample> sample() const {
    struct Known {
      int bits;
      int format;
      Sample sample;
    };
    constexpr Known known[] = {
        {8, SAMPLEFORMAT_UINT, Sample::uint8},      {8, SAMPLEFORMAT_INT, Sample::int8},
        {16, SAMPLEFORMAT_UINT, Sample::uint16},    {16, SAMPLEFORMAT_INT, Sample::int16},
        {32, SAMPLEFORMAT_UINT, Sample::uint32},    {32, SAMPLEFORMAT_INT, Sample::int32},
        {32, SAMPLEFORMAT_IEEEFP, Sample::float32}, {64, SAMPLEFORMAT_IEEEFP, Sample::float64},
    };
    for (const Known& kind : known) {
      if (bits == kind.bits && format == kind.format) {
        return kind.sample;
      }
    }
    return {};
  }

  /// Why the page cannot be used, or nothing.
  std::string objection() const {
    const bool grey = samples == 1 && photometric == PHOTOMETRIC_MINISBLACK;
    const bool greyAsColour = samples == 3 && photometric == PHOTOMETRIC_RGB && planes == PLANARCONFIG_CONTIG;
    if (photometric == PHOTOMETRIC_MINISWHITE) {
      return "does not count up from black; export the frames with black as zero";
    }
    if (!grey && !greyAsColour) {
      return "is a colour image; export the frames as single-channel grey values";
    }
    if (!sample()) {
      return "has " + std::to_string(bits) + (format == SAMPLEFORMAT_IEEEFP ? "-bit floats" : "-bit values of a kind") +
             std::string(" that are not read; export the frames as integers of 8, 16 or 32 bits or floats of 32 or 64");
    }
    return {};
  }
};

class TiffReader : public ImageReader {
 public:
  TiffReader(SharedBytes source, const std::string& file) : ImageReader(std::move(source), file), tiff(bytes, file) {
    if (tiff.get() == nullptr || !tiff.complaint.empty()) {
      damaged(0);
    }
    result = isResultMark(text(TIFFTAG_SOFTWARE));
    std::size_t number = 0;
    do {
      ++number;
      if (!tiff.complaint.empty()) {
        damaged(number);
      }
      if (!linksOn(TIFFCurrentDirOffset(tiff.get()))) {
        damaged(number);
      }
      const PageLayout page(tiff.get());
      // Reduced copies of pages are no images of their own.
      if ((page.subfile & FILETYPE_REDUCEDIMAGE) == 0) {
        pages.push_back(describe(page, number));
      }
    } while (TIFFReadDirectory(tiff.get()) != 0);
    if (!tiff.complaint.empty()) {
      damaged(number);
    }
    if (pages.empty()) {
      fail("holds previews only; export the image in full size");
    }
  }

  std::size_t count() const override { return pages.size(); }
  std::size_t pageNumber(std::size_t index) const override { return pages[index].number; }
  bool isResult() const override { return result; }

  std::string description(std::size_t index) const override { return pages[index].description; }

  ImageLayout layout(std::size_t index) const override {
    const Page& page = pages[index];
    if (!page.objection.empty()) {
      fail(index, page.objection);
    }
    return page.layout;
  }

  void read(std::size_t index, const Piece& receive) override {
    const Page& page = pages[index];
    tiff.complaint.clear();
    if (TIFFSetSubDirectory(tiff.get(), page.offset) == 0 || !tiff.complaint.empty()) {
      damaged(page.number);
    }
    if (TIFFIsTiled(tiff.get()) != 0) {
      readTiles(page, receive);
    } else {
      readLines(page, receive);
    }
  }

 private:
  struct Page {
    ImageLayout layout;
    std::string objection;
    std::uint64_t offset;
    std::size_t number;
    std::string description;
  };

  /// Whether the link to the next page, which ends a directory, is there. libtiff takes a missing one for that of the
  /// last page, by which a file cut between two pages would pass for a shorter one.
  bool linksOn(std::uint64_t directory) const {
    std::array<unsigned char, 8> header{};
    bytes->read(0, header.data(), 4);
    const bool littleEndian = header[0] == 'I';
    const bool big = header[littleEndian ? 2 : 3] == 43;
    const std::size_t countBytes = big ? 8 : 2;
    if (bytes->read(directory, header.data(), countBytes) != countBytes) {
      return false;
    }
    std::uint64_t entries = 0;
    for (std::size_t i = 0; i < countBytes; ++i) {
      entries = entries << 8U | header[littleEndian ? countBytes - 1 - i : i];
    }
    const std::uint64_t linkBytes = big ? 8 : 4;
    const std::uint64_t entryBytes = big ? 20 : 12;
    return entries < bytes->size() && directory + countBytes + entries * entryBytes + linkBytes <= bytes->size();
  }

  Page describe(const PageLayout& page, std::size_t number) const {
    Page known{{}, page.objection(), TIFFCurrentDirOffset(tiff.get()), number, text(TIFFTAG_IMAGEDESCRIPTION)};
    if (known.objection.empty()) {
      known.layout = {checkedSize(page.width, page.height), *page.sample(), page.samples};
    }
    return known;
  }

  void readLines(const Page& page, const Piece& receive) {
    const std::size_t rowBytes = pixelBytes(page) * static_cast<std::size_t>(page.layout.size.width);
    // A row is read into the room of one row, so the two sizes must agree.
    if (TIFFScanlineSize64(tiff.get()) != rowBytes) {
      damaged(page.number);
    }
    std::vector<unsigned char> row(rowBytes);
    for (int y = 0; y < page.layout.size.height; ++y) {
      if (TIFFReadScanline(tiff.get(), row.data(), static_cast<std::uint32_t>(y)) < 0 || !tiff.complaint.empty()) {
        damaged(page.number);
      }
      receive(y, 0, page.layout.size.width, row.data());
    }
  }

  void readTiles(const Page& page, const Piece& receive) {
    std::uint32_t tileWidth = 0;
    std::uint32_t tileHeight = 0;
    TIFFGetField(tiff.get(), TIFFTAG_TILEWIDTH, &tileWidth);
    TIFFGetField(tiff.get(), TIFFTAG_TILELENGTH, &tileHeight);
    const cv::Size size = page.layout.size;
    const std::uint64_t tilePixels = static_cast<std::uint64_t>(tileWidth) * tileHeight;
    const auto pixels = static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(size.height);
    if (tilePixels == 0 || tilePixels > std::max(pixels, largestSmallTile) ||
        TIFFTileSize64(tiff.get()) != tilePixels * pixelBytes(page)) {
      damaged(page.number);
    }
    std::vector<unsigned char> tile(static_cast<std::size_t>(tilePixels) * pixelBytes(page));
    const int acrossTile = static_cast<int>(tileWidth);
    const int downTile = static_cast<int>(tileHeight);
    for (int top = 0; top < size.height; top += std::min(downTile, size.height - top)) {
      for (int left = 0; left < size.width; left += std::min(acrossTile, size.width - left)) {
        if (TIFFReadTile(tiff.get(), tile.data(), static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(top), 0,
                         0) < 0 ||
            !tiff.complaint.empty()) {
          damaged(page.number);
        }
        const int width = std::min(acrossTile, size.width - left);
        for (int y = 0; y < std::min(downTile, size.height - top); ++y) {
          receive(top + y, left, width,
                  tile.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(tileWidth) * pixelBytes(page));
        }
      }
    }
  }

  static std::size_t pixelBytes(const Page& page) {
    return bytesOf(page.layout.sample) * static_cast<std::size_t>(page.layout.channels);
  }

  /// A field of the current page.
  std::string text(std::uint32_t tag) const {
    char* value = nullptr;
    return TIFFGetField(tiff.get(), tag, &value) != 0 && value != nullptr ? value : "";
  }

  [[noreturn]] void damaged(std::size_t number) const {
    throw Failure(ExitCode::badInput, name + (number > 0 ? ", page " + std::to_string(number) : "") +
                                          ": not a whole TIFF file (" + tiff.complaint + "); copy or export it again");
  }

  TiffInput tiff;
  std::vector<Page> pages;
  bool result = false;
};

}  // namespace

bool looksLikeTiff(const std::string& start) {
  for (const char* magic : {"II*\0", "MM\0*", "II+\0", "MM\0+"}) {
    if (start.compare(0, 4, magic, 4) == 0) {
      return true;
    }
  }
  return false;
}

std::unique_ptr<ImageReader> openTiff(SharedBytes bytes, const std::string& name) {
  return std::make_unique<TiffReader>(std::move(bytes), name);
}

}  // namespace movra::tool
