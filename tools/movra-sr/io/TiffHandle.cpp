#include "tools/movra-sr/io/TiffHandle.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "tools/movra-sr/io/ImageReader.h"

namespace movra::tool {

namespace {

/// libtiff takes no more memory than this at once: the compressed values of the largest image.
constexpr tmsize_t largestAllocation = static_cast<tmsize_t>(4 * maxPixels);

struct FreeOptions {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};
using Options = std::unique_ptr<TIFFOpenOptions, FreeOptions>;

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

Options makeOptions(std::string& complaint) {
  Options options(TIFFOpenOptionsAlloc());
  if (!options) {
    throw std::bad_alloc();
  }
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), largestAllocation);
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepComplaint, &complaint);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignoreWarning, nullptr);
  return options;
}

tmsize_t readInput(thandle_t handle, void* target, tmsize_t count) {
  auto& input = *static_cast<TiffInput*>(handle);
  const std::size_t got = input.bytes->read(input.at, target, static_cast<std::size_t>(count));
  input.at += got;
  return static_cast<tmsize_t>(got);
}

tmsize_t refuseWriting(thandle_t, void*, tmsize_t) {
  return 0;
}

toff_t seekInput(thandle_t handle, toff_t offset, int whence) {
  auto& input = *static_cast<TiffInput*>(handle);
  const std::uint64_t base = whence == SEEK_CUR ? input.at : whence == SEEK_END ? input.bytes->size() : 0;
  return input.at = base + offset;
}

int closeInput(thandle_t) {
  return 0;
}

toff_t sizeOfInput(thandle_t handle) {
  return static_cast<TiffInput*>(handle)->bytes->size();
}

}  // namespace

TiffInput::TiffInput(std::shared_ptr<const Bytes> source, const std::string& name) : bytes(std::move(source)) {
  const Options options = makeOptions(complaint);
  handle.reset(TIFFClientOpenExt(name.c_str(), "rm", this, readInput, refuseWriting, seekInput, closeInput, sizeOfInput,
                                 nullptr, nullptr, options.get()));
}

TiffHandle openTiffOutput(int descriptor, const std::string& name, const char* mode, std::string& complaint) {
  const int copy = dup(descriptor);  // libtiff closes what it is given
  if (copy < 0) {
    return nullptr;
  }
  const Options options = makeOptions(complaint);
  TiffHandle handle(TIFFFdOpenExt(copy, name.c_str(), mode, options.get()));
  if (!handle) {
    close(copy);
  }
  return handle;
}

}  // namespace movra::tool
