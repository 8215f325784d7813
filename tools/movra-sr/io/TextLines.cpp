#include "tools/movra-sr/io/TextLines.h"

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

namespace {

constexpr std::size_t longestLine = std::size_t{1} << 20U;
constexpr std::size_t bufferSize = std::size_t{1} << 16U;

}  // namespace

TextLines::TextLines(const Bytes& source, std::string name) : bytes(source), file(std::move(name)) {
  rewind();
}

void TextLines::rewind() {
  buffer.clear();
  bufferEnd = 0;
  used = 0;
  lines = 0;
  afterReturn = false;
  encoding = Encoding::bytes;
  char mark[3] = {};
  const std::size_t got = bytes.read(0, mark, sizeof mark);
  const std::string start(mark, got);
  if (start == "\xEF\xBB\xBF") {
    bufferEnd = 3;
  } else if (start.compare(0, 2, "\xFF\xFE") == 0) {
    bufferEnd = 2;
    encoding = Encoding::utf16Little;
  } else if (start.compare(0, 2, "\xFE\xFF") == 0) {
    bufferEnd = 2;
    encoding = Encoding::utf16Big;
  }
}

int TextLines::nextByte() {
  if (used == buffer.size()) {
    buffer.resize(bufferSize);
    buffer.resize(bytes.read(bufferEnd, buffer.data(), buffer.size()));
    bufferEnd += buffer.size();
    used = 0;
    if (buffer.empty()) {
      return -1;
    }
  }
  return static_cast<unsigned char>(buffer[used++]);
}

int TextLines::nextCharacter() {
  const int first = nextByte();
  if (encoding == Encoding::bytes || first < 0) {
    return first;
  }
  const int second = nextByte();
  const int low = encoding == Encoding::utf16Little ? first : second;
  const int high = encoding == Encoding::utf16Little ? second : first;
  return second < 0 ? -1 : high == 0 && low < 128 ? low : '?';
}

bool TextLines::next(std::string& line) {
  line.clear();
  int c = nextCharacter();
  if (afterReturn && c == '\n') {
    c = nextCharacter();
  }
  afterReturn = false;
  if (c < 0) {
    return false;
  }
  ++lines;
  for (; c >= 0 && c != '\n' && c != '\r'; c = nextCharacter()) {
    if (line.size() == longestLine) {
      throw Failure(ExitCode::badInput, file + ", line " + std::to_string(lines) +
                                            ": is longer than a mebibyte; check that this is the right file");
    }
    line += static_cast<char>(c);
  }
  afterReturn = c == '\r';
  return true;
}

}  // namespace movra::tool
