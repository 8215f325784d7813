#pragma once

#include <tiffio.h>

#include <memory>
#include <string>

#include "tools/movra-sr/io/Bytes.h"

namespace movra::tool {

struct CloseTiff {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using TiffHandle = std::unique_ptr<TIFF, CloseTiff>;

/// A file as libtiff has it open for reading. The first complaint of the library is kept; it prints nothing.
class TiffInput {
 public:
  TiffInput(std::shared_ptr<const Bytes> source, const std::string& name);
  TiffInput(const TiffInput&) = delete;
  TiffInput& operator=(const TiffInput&) = delete;

  TIFF* get() const { return handle.get(); }

  std::shared_ptr<const Bytes> bytes;
  std::uint64_t at = 0;
  std::string complaint;

 private:
  TiffHandle handle;
};

/// Opens a descriptor for writing; it stays the caller's. `mode` as in TIFFOpen.
TiffHandle openTiffOutput(int descriptor, const std::string& name, const char* mode, std::string& complaint);

}  // namespace movra::tool
