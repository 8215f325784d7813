#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>

#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/OutputFile.h"

namespace movra::tool {

/// How values are put into a file.
struct ImageEncoding {
  Sample sample = Sample::float32;  ///< or uint16, int16: stored = (value - offset) / gain, rounded and limited
  Scale scale;                      ///< value = gain * stored + offset; integers only
};

/// What is said about an image in its file. The description is whatever text the caller wants kept (JSON, for
/// instance); for integers the writer puts the scale before it.
struct ImageDescription {
  std::string text;
  bool simulated = false;  ///< a simulated frame, which may become a frame again; results never do
};

/// Whether writeImage knows the file's ending: .tif .tiff .png .npy .csv, in any case of letters.
bool isImageName(const std::string& path);

/// Fails (wrong usage) unless the ending of the name is known and can hold values of this kind: PNG holds integers, CSV
/// and NPY (float32) hold floats.
void requireWritable(const std::string& path, const ImageEncoding& encoding);

/// An encoding in 16-bit integers that holds all finite values of the image, with a gain that reads well (1, 2 or 5 times
/// a power of ten).
ImageEncoding sixteenBitsFor(const cv::Mat_<float>& image);

/// Writes one image in the format that the name's ending tells. Values that are not finite become 0 in integers.
/// The file still has to be committed. Throws Failure.
void writeImage(OutputFile& file, const cv::Mat_<float>& image, const ImageDescription& description,
                const ImageEncoding& encoding = {});

/// Several images of one size as pages of one TIFF file, added as they are made. `finish` before the commit.
class TiffPages {
 public:
  /// `expectedBytes` decides whether the file gets 64-bit offsets; 0 when nobody knows, which they are taken for then.
  TiffPages(OutputFile& file, const ImageEncoding& encoding, std::uint64_t expectedBytes);
  ~TiffPages();
  TiffPages(const TiffPages&) = delete;
  TiffPages& operator=(const TiffPages&) = delete;

  void add(const cv::Mat_<float>& image, const ImageDescription& description);
  void finish();

 private:
  struct State;
  std::unique_ptr<State> state;
};

/// Writes an 8-bit picture of one or three (blue, green, red) channels as PNG.
void writePng(OutputFile& file, const cv::Mat& picture);

}  // namespace movra::tool
