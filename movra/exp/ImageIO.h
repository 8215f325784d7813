#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "movra/Export.h"

namespace movra::exp {

/// Writes images as numbered files into a folder, for looking at what a program was given.
///
/// The format is the portable float map (PFM): a short text header, then rows of 32-bit floats, bottom row
/// first. Values are written bit for bit, so flag values and NaN payloads survive. An object is closed until
/// `open` succeeds. Copies keep the folder and the next number, so only one of them should go on writing. One
/// thread at a time.
class MOVRA_SUPERRESOLUTION_API ImageIO {
 public:
  /// Mode 2 writes; every other mode makes an object that cannot be opened.
  explicit ImageIO(int mode);

  /// Opens the folder, which is created when missing, and starts counting at 0 (existing files of the same
  /// name are replaced). Returns whether the object is open now.
  bool open(const std::string& folder);

  bool isOpen() const noexcept { return opened; }

  /// Writes the image, rows x columns of one channel (converted to 32-bit float unless it is that already),
  /// to "NNNN_name.pfm", or "NNNN.pfm" when the name is empty. Throws movra::Exception naming the file when
  /// the object is closed, the image is empty or has several channels, or the file cannot be written whole;
  /// then no file is left behind and the number is used again.
  void write(const cv::Mat& image, const std::string& name);

  void close() noexcept { opened = false; }

 private:
  int mode;
  bool opened = false;
  int nextNumber = 0;
  std::string folder;
};

}  // namespace movra::exp
