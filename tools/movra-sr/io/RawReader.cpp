#include "tools/movra-sr/io/RawReader.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <vector>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/ImageFormats.h"

namespace movra::tool {

namespace {

class RawReader : public ImageReader {
 public:
  RawReader(SharedBytes source, const std::string& file, const RawLayout& what)
      : ImageReader(std::move(source), file), raw(what) {
    checkedSize(static_cast<std::uint64_t>(raw.size.width), static_cast<std::uint64_t>(raw.size.height));
    if (bytes->size() % raw.frameBytes() != 0) {
      fail("has " + std::to_string(bytes->size()) + " bytes, which is no whole number of raw frames of " +
           sizeText(raw.size) + " (" + std::to_string(raw.frameBytes()) +
           " bytes each); check the size, or remove what is no frame");
    }
  }

  std::size_t count() const override { return static_cast<std::size_t>(bytes->size() / raw.frameBytes()); }

  ImageLayout layout(std::size_t) const override { return {raw.size, Sample::uint16, 1}; }

  /// Neighbours differ far less in the right byte order than in the other one.
  std::string note() const override {
    std::vector<unsigned char> middle(std::min<std::size_t>(raw.frameBytes(), 1U << 16U));
    middle.resize(bytes->read((raw.frameBytes() - middle.size()) / 4 * 2, middle.data(), middle.size()) / 2 * 2);
    double asGiven = 0, swapped = 0;
    for (std::size_t i = 2; i < middle.size(); i += 2) {
      const int high = middle[i] - middle[i - 2], low = middle[i + 1] - middle[i - 1];
      const double bigEndian = std::abs(256 * high + low), littleEndian = std::abs(256 * low + high);
      asGiven += raw.bigEndian ? bigEndian : littleEndian;
      swapped += raw.bigEndian ? littleEndian : bigEndian;
    }
    constexpr double certain = 8;
    return asGiven > certain * swapped ? std::string("neighbouring pixels differ as if the bytes were in the other ") +
                                             "order; try --raw " + sizeText(raw.size) + (raw.bigEndian ? "" : ",big")
                                       : "";
  }

  void read(std::size_t index, const Piece& receive) override {
    const std::uint64_t offset = static_cast<std::uint64_t>(index) * raw.frameBytes();
    if (!readPlainRows(*bytes, offset, layout(index), raw.bigEndian, receive)) {
      fail(index, "cannot be read to its end; check the disk");
    }
  }

 private:
  RawLayout raw;
};

}  // namespace

RawLayout parseRawLayout(const std::string& text) {
  RawLayout layout;
  const char* const end = text.data() + text.size();
  const auto [afterWidth, widthError] = std::from_chars(text.data(), end, layout.size.width);
  if (widthError == std::errc() && afterWidth != end && *afterWidth == 'x') {
    const auto [afterHeight, heightError] = std::from_chars(afterWidth + 1, end, layout.size.height);
    const std::string rest(afterHeight, end);
    layout.bigEndian = rest == ",big";
    const bool fits =
        layout.size.width > 0 && layout.size.height > 0 &&
        static_cast<std::uint64_t>(layout.size.width) <= maxPixels / static_cast<std::uint64_t>(layout.size.height);
    if (heightError == std::errc() && fits && (rest.empty() || layout.bigEndian)) {
      return layout;
    }
  }
  throw Failure(ExitCode::usage, text + ": raw frames are given as WIDTHxHEIGHT or, high byte first, WIDTHxHEIGHT,big");
}

std::unique_ptr<ImageReader> openRaw(SharedBytes bytes, const std::string& name, const RawLayout& layout) {
  return std::make_unique<RawReader>(std::move(bytes), name, layout);
}

}  // namespace movra::tool
