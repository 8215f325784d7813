// A reader of the tool: the one that the build names, or that of bad-pixel lists. It may refuse its bytes by a Failure;
// another exception or a pixel that is never written is a finding.

#include <algorithm>
#include <cstdint>

#include "tests/fuzz/FuzzInput.h"
#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/BadPixelFile.h"
#include "tools/movra-sr/io/ImageFormats.h"

namespace {

using namespace movra::tool;

/// Larger images are as hostile as small ones, but take long.
constexpr std::int64_t largestArea = 1 << 18;
constexpr std::size_t mostPages = 4;

[[maybe_unused]] std::unique_ptr<ImageReader> openAny(SharedBytes bytes, const std::string& name) {
  return openImage(std::move(bytes), name);
}

[[maybe_unused]] void readPages(ImageReader& reader) {
  for (std::size_t page = 0; page < std::min(reader.count(), mostPages); ++page) {
    if (reader.layout(page).size.area() > largestArea) {
      continue;
    }
    // Each pixel has to be written once: what is left out would be whatever was in memory.
    cv::Mat_<int> written = cv::Mat_<int>::zeros(reader.layout(page).size);
    reader.read(page, [&](int row, int column, int count, const void*) {
      written.row(row).colRange(column, column + count) += 1;
    });
    require(cv::countNonZero(written != 1) == 0, "each pixel is read once");
    readFrame(reader, page, {2, 1});
  }
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  const std::string content = input.ConsumeRemainingBytesAsString();
  try {
#ifdef MOVRA_FUZZ_OPEN
    readPages(*MOVRA_FUZZ_OPEN(bytesOf(content), "image"));
#else
    readBadPixels(*bytesOf(content), "list");
#endif
  } catch (const Failure&) {
  }
}
