#include <algorithm>
#include <vector>

#include "tools/movra-sr/io/ImageFormats.h"

namespace movra::tool {

namespace {

bool isBlank(int c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Grey images of the P5 (binary) or P2 (text) kind, one or several behind each other.
class PgmReader : public ImageReader {
 public:
  PgmReader(SharedBytes source, const std::string& file) : ImageReader(std::move(source), file) {
    while (at < bytes->size()) {
      readHeader();
    }
  }

  std::size_t count() const override { return pages.size(); }

  ImageLayout layout(std::size_t index) const override {
    const Page& page = pages[index];
    return {page.size, page.largest < 256 ? Sample::uint8 : Sample::uint16, 1};
  }

  void read(std::size_t index, const Piece& receive) override {
    const Page& page = pages[index];
    if (!page.text) {
      if (!readPlainRows(*bytes, page.offset, layout(index), true, receive)) {
        fail(index, "not a whole PGM file; copy or export it again");
      }
      return;
    }
    at = page.offset;
    std::vector<std::uint16_t> row(static_cast<std::size_t>(page.size.width));
    std::vector<std::uint8_t> narrow(row.size());
    for (int y = 0; y < page.size.height; ++y) {
      for (std::uint16_t& value : row) {
        value = static_cast<std::uint16_t>(number(page.largest));
      }
      std::transform(row.begin(), row.end(), narrow.begin(), [](auto v) { return static_cast<std::uint8_t>(v); });
      receive(y, 0, page.size.width, page.largest < 256 ? static_cast<const void*>(narrow.data()) : row.data());
    }
  }

 private:
  struct Page {
    cv::Size size;
    unsigned largest;
    bool text;
    std::uint64_t offset;
  };

  int next() {
    if (at < bufferStart || at >= bufferStart + buffer.size()) {
      bufferStart = at;
      buffer.resize(4096);
      buffer.resize(bytes->read(at, buffer.data(), buffer.size()));
      if (buffer.empty()) {
        return -1;
      }
    }
    return static_cast<unsigned char>(buffer[static_cast<std::size_t>(at++ - bufferStart)]);
  }

  /// The next number, behind blanks and comments, and the blank that ends it.
  unsigned number(unsigned largest) {
    int c = next();
    while (isBlank(c) || c == '#') {
      if (c == '#') {
        do {
          c = next();
        } while (c != '\n' && c != '\r' && c != -1);
      }
      c = next();
    }
    std::uint64_t value = 0;
    bool found = false;
    for (; c >= '0' && c <= '9' && value <= largest; c = next()) {
      value = 10 * value + static_cast<unsigned>(c - '0');
      found = true;
    }
    if (!found || value > largest || !(isBlank(c) || c == -1)) {
      fail(pages.empty() ? "is no PGM file, or is damaged; export it again"
                         : "not a whole PGM file; copy or export it again");
    }
    return static_cast<unsigned>(value);
  }

  void readHeader() {
    const int p = next();
    const int kind = next();
    if (p != 'P' || (kind != '5' && kind != '2')) {
      fail("has bytes behind its image that are no further PGM image; export it again");
    }
    Page page{};
    page.text = kind == '2';
    const unsigned width = number(1U << 30U);
    const unsigned height = number(1U << 30U);
    page.size = checkedSize(width, height);
    page.largest = number(65535);
    if (page.largest == 0) {
      fail("is no PGM file, or is damaged; export it again");
    }
    page.offset = at;
    const std::uint64_t data = static_cast<std::uint64_t>(width) * height * (page.text || page.largest < 256 ? 1U : 2U);
    // A value of text takes a digit and a blank.
    if (data + (page.text ? data - 1 : 0) > bytes->size() - std::min(at, bytes->size())) {
      fail("not a whole PGM file; copy or export it again");
    }
    pages.push_back(page);
    // Text of one image ends with the file.
    at = page.text ? bytes->size() : at + data;
  }

  std::vector<Page> pages;
  std::uint64_t at = 0;
  std::uint64_t bufferStart = 0;
  std::string buffer;
};

}  // namespace

bool looksLikePgm(const std::string& start) {
  return start.size() > 3 && start[0] == 'P' && (start[1] == '5' || start[1] == '2') &&
         (isBlank(start[2]) || start[2] == '#');
}

std::unique_ptr<ImageReader> openPgm(SharedBytes bytes, const std::string& name) {
  return std::make_unique<PgmReader>(std::move(bytes), name);
}

}  // namespace movra::tool
