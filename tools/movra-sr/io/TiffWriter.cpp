#include <cstring>
#include <vector>

#include "tools/movra-sr/io/StoredValues.h"
#include "tools/movra-sr/io/TiffHandle.h"

namespace movra::tool {

namespace {

/// Below the four gibibytes that 32-bit offsets reach.
constexpr std::uint64_t largestSmallFile = std::uint64_t{4'000'000'000};

}  // namespace

struct TiffPages::State {
  OutputFile& file;
  ImageEncoding encoding;
  std::string complaint;
  TiffHandle tiff;
};

TiffPages::TiffPages(OutputFile& file, const ImageEncoding& encoding, std::uint64_t expectedBytes)
    : state(new State{file, encoding, {}, nullptr}) {
  const bool small = expectedBytes > 0 && expectedBytes < largestSmallFile;
  state->tiff = openTiffOutput(file.descriptor(), file.path().string(), small ? "w" : "w8", state->complaint);
  if (!state->tiff) {
    file.failWriting();
  }
}

TiffPages::~TiffPages() = default;

void TiffPages::add(const cv::Mat_<float>& image, const ImageDescription& description) {
  TIFF* const tiff = state->tiff.get();
  const ImageEncoding& encoding = state->encoding;
  const bool floats = encoding.sample == Sample::float32;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(image.cols));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(image.rows));
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, floats ? 32 : 16);
  TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT,
               floats                             ? SAMPLEFORMAT_IEEEFP
               : encoding.sample == Sample::int16 ? SAMPLEFORMAT_INT
                                                  : SAMPLEFORMAT_UINT);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
  TIFFSetField(tiff, TIFFTAG_SOFTWARE, signatureOf(description).c_str());
  TIFFSetField(tiff, TIFFTAG_IMAGEDESCRIPTION, fullText(description, encoding).c_str());

  // The library may change the bytes that it is given.
  std::vector<float> row(static_cast<std::size_t>(image.cols));
  for (int y = 0; y < image.rows && state->complaint.empty(); ++y) {
    if (floats) {
      std::memcpy(row.data(), image[y], row.size() * sizeof(float));
    } else {
      storeRow(image[y], image.cols, encoding, row.data());
    }
    TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y));
  }
  if (TIFFWriteDirectory(tiff) == 0 || !state->complaint.empty()) {
    state->file.failWriting();
  }
}

void TiffPages::finish() {
  TIFFFlush(state->tiff.get());
  state->tiff.reset();
  if (!state->complaint.empty()) {
    state->file.failWriting();
  }
}

}  // namespace movra::tool
