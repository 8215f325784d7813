#pragma once

#include <cstdint>
#include <string>

#include "tools/movra-sr/io/Bytes.h"

namespace movra::tool {

/// The lines of a text of the encodings in which programs export tables: UTF-8 with or without a mark, UTF-16 with a
/// mark, Latin-1. Lines end with LF, CR or CR LF. Bytes that are not ASCII are handed on as they are; of UTF-16,
/// characters that are not ASCII become '?'. Only one line is held.
class TextLines {
 public:
  TextLines(const Bytes& source, std::string name);

  /// The next line without its end; false after the last. Throws Failure for a line that is longer than a mebibyte.
  bool next(std::string& line);

  /// Number of the line that was read last, counted from 1.
  std::uint64_t number() const { return lines; }

  void rewind();

 private:
  int nextByte();
  int nextCharacter();

  const Bytes& bytes;
  std::string file;
  std::string buffer;
  std::uint64_t bufferEnd = 0;  // its place in the file
  std::size_t used = 0;
  std::uint64_t lines = 0;
  enum class Encoding { bytes, utf16Little, utf16Big } encoding = Encoding::bytes;
  bool afterReturn = false;
};

}  // namespace movra::tool
