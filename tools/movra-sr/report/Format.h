#pragma once

#include <cstdio>
#include <string>

namespace movra::tool {

/// The text that std::printf would print, of any length.
template <class... Values>
std::string format(const char* pattern, Values... values) {
  const int length = std::snprintf(nullptr, 0, pattern, values...);
  std::string text(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
  std::snprintf(text.data(), text.size() + 1, pattern, values...);
  return text;
}

}  // namespace movra::tool
