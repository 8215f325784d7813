#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

#include "tools/movra-sr/io/ImageFormats.h"

namespace movra::tool {

namespace {

constexpr char magic[] = "\x93NUMPY";
constexpr std::size_t magicLength = 6;

/// Headers are a line of some hundred bytes.
constexpr std::uint32_t largestHeader = 65536;

/// An array of two dimensions (rows x columns) or three (frames x rows x columns).
class NpyReader : public ImageReader {
 public:
  NpyReader(SharedBytes source, const std::string& file) : ImageReader(std::move(source), file) {
    readHeader();
    const std::string shape = value("shape");
    const std::vector<std::uint64_t> sides = numbersOf(shape);
    if (sides.size() != 2 && sides.size() != 3) {
      fail("has the shape " + shape + "; save an array of rows x columns or frames x rows x columns");
    }
    if (value("fortran_order") != "False") {
      fail("is stored column by column; save numpy.ascontiguousarray of it");
    }
    image.size = checkedSize(sides[sides.size() - 1], sides[sides.size() - 2]);
    readType(value("descr"));
    frames = sides.size() == 3 ? sides[0] : 1;
    const std::uint64_t frameBytes = bytesOf(image.sample) * sides[sides.size() - 1] * sides[sides.size() - 2];
    const std::uint64_t available = bytes->size() - offset;
    if (frames == 0 || frames > available / frameBytes || frames * frameBytes != available) {
      fail("has " + std::to_string(available) + " bytes of values, which do not fit its shape " + shape +
           "; the file was cut short or damaged, save it again");
    }
  }

  std::size_t count() const override { return static_cast<std::size_t>(frames); }
  ImageLayout layout(std::size_t) const override { return image; }
  bool isResult() const override { return isResultMark(comment); }

  void read(std::size_t index, const Piece& receive) override {
    const std::uint64_t frameBytes = bytesOf(image.sample) * static_cast<std::uint64_t>(image.size.width) *
                                     static_cast<std::uint64_t>(image.size.height);
    if (!readPlainRows(*bytes, offset + index * frameBytes, image, bigEndian, receive)) {
      fail(index, "cannot be read to its end; check the disk");
    }
  }

 private:
  void readHeader() {
    std::array<unsigned char, 12> start{};
    const std::size_t got = bytes->read(0, start.data(), start.size());
    const bool brief = start[6] == 1;
    offset = brief ? 10 : 12;
    const std::uint32_t length =
        start[8] | static_cast<std::uint32_t>(start[9]) << 8U |
        (brief ? 0U : static_cast<std::uint32_t>(start[10]) << 16U | static_cast<std::uint32_t>(start[11]) << 24U);
    if (got < offset || start[6] < 1 || start[6] > 3 || length > largestHeader || length > bytes->size() - offset) {
      failHeader();
    }
    header.resize(length);
    if (bytes->read(offset, header.data(), length) != length) {
      failHeader();
    }
    offset += length;
    const std::size_t end = header.rfind('}');
    if (end == std::string::npos) {
      failHeader();
    }
    // Behind the dictionary, this tool signs what it writes.
    if (const std::size_t mark = header.find("# ", end); mark != std::string::npos) {
      comment = header.substr(mark + 2);
    }
    header.resize(end);
  }

  /// What stands behind a key, up to the comma or bracket that ends it.
  std::string value(const std::string& key) const {
    std::size_t at = header.find('\'' + key + '\'');
    if (at == std::string::npos) {
      failHeader();
    }
    at = header.find_first_not_of(" :", at + key.size() + 2);
    if (at == std::string::npos) {
      failHeader();
    }
    const char opening = header[at];
    const std::size_t end = header.find_first_of(opening == '('    ? ")"
                                                 : opening == '\'' ? "'"
                                                 : opening == '['  ? "]"
                                                                   : ",",
                                                 at + 1);
    const bool closes = opening == '(' || opening == '\'' || opening == '[';
    if (end == std::string::npos) {
      if (closes) {
        failHeader();
      }
      return header.substr(at);
    }
    return header.substr(at, end - at + (closes ? 1 : 0));
  }

  std::vector<std::uint64_t> numbersOf(const std::string& shape) const {
    std::vector<std::uint64_t> numbers;
    const char* const end = shape.data() + shape.size();
    for (const char* at = shape.data(); at != end;) {
      if (*at == '(' || *at == ')' || *at == ',' || *at == ' ') {
        ++at;
        continue;
      }
      std::uint64_t number = 0;
      const auto [stop, error] = std::from_chars(at, end, number);
      if (error != std::errc()) {
        failHeader();
      }
      numbers.push_back(number);
      at = stop;
    }
    return numbers;
  }

  void readType(const std::string& type) {
    struct Known {
      std::string_view code;
      Sample sample;
    };
    constexpr Known known[] = {{"u1", Sample::uint8},   {"i1", Sample::int8},   {"u2", Sample::uint16},
                               {"i2", Sample::int16},   {"u4", Sample::uint32}, {"i4", Sample::int32},
                               {"f4", Sample::float32}, {"f8", Sample::float64}};
    const std::string order = type.substr(0, 2);
    for (const Known& candidate : known) {
      if (type.size() == 5 && type.substr(2, 2) == candidate.code &&
          (order == "'<" || order == "'>" || order == "'=" || order == "'|")) {
        image.sample = candidate.sample;
        bigEndian = order == "'>";
        return;
      }
    }
    fail("has values of the type " + type + ", which are not read; save it with .astype(numpy.float32)");
  }

  [[noreturn]] void failHeader() const { fail("is no whole NPY file; save it again"); }

  std::string header;
  std::string comment;
  ImageLayout image;
  bool bigEndian = false;
  std::uint64_t frames = 0;
  std::uint64_t offset = 0;
};

}  // namespace

bool looksLikeNpy(const std::string& start) {
  return start.compare(0, magicLength, magic) == 0;
}

std::unique_ptr<ImageReader> openNpy(SharedBytes bytes, const std::string& name) {
  return std::make_unique<NpyReader>(std::move(bytes), name);
}

}  // namespace movra::tool
