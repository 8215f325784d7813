#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace movra::tool {

/// Headerless frames of unsigned 16-bit values, one behind the other, rows without padding.
struct RawLayout {
  cv::Size size;
  bool bigEndian = false;

  std::size_t frameBytes() const {
    return 2 * static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
  }
};

/// "WIDTHxHEIGHT" or "WIDTHxHEIGHT,big". Throws Failure for anything else.
RawLayout parseRawLayout(const std::string& text);

}  // namespace movra::tool
