#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

#include "tools/movra-sr/io/ImageFormats.h"
#include "tools/movra-sr/io/TextLines.h"

namespace movra::tool {

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

/// Longer texts are no numbers.
constexpr std::size_t longestNumber = 64;

using Values = std::vector<double>;

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view around = " \t\"";
  const std::size_t begin = text.find_first_not_of(around);
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(around) + 1 - begin);
}

/// How the values of a line are kept apart.
struct Separation {
  char separator;  ///< ' ' stands for any number of blanks
  bool decimalComma;
};

/// A semicolon or tab leaves the comma to decimals. Between blanks, a comma with a digit on both sides is one, too.
Separation separationOf(const std::string& line) {
  if (line.find(';') != std::string::npos) {
    return {';', true};
  }
  if (line.find('\t') != std::string::npos) {
    return {'\t', true};
  }
  const auto isDigit = [&](std::size_t at) { return at < line.size() && line[at] >= '0' && line[at] <= '9'; };
  bool quoted = false;
  bool quotedComma = false;
  bool decimal = false;
  bool separates = false;
  for (std::size_t at = 0; at < line.size(); ++at) {
    quoted = quoted != (line[at] == '"');
    if (line[at] == ',') {
      quotedComma = quotedComma || quoted;
      const bool betweenDigits = at > 0 && isDigit(at - 1) && isDigit(at + 1);
      decimal = decimal || betweenDigits;
      separates = separates || !(betweenDigits || quoted);
    }
  }
  const bool blanks = trimmed(line).find(' ') != std::string_view::npos;
  if (quotedComma || separates || (decimal && !blanks)) {
    return {',', quotedComma};
  }
  return {' ', true};
}

std::vector<std::string_view> fieldsOf(const std::string& line, char separator) {
  std::vector<std::string_view> fields;
  bool quoted = false;
  std::size_t start = 0;
  for (std::size_t at = 0; at <= line.size(); ++at) {
    quoted = quoted != (at < line.size() && line[at] == '"');
    if (at == line.size() || (line[at] == separator && !quoted)) {
      fields.push_back(trimmed(std::string_view(line).substr(start, at - start)));
      start = at + 1;
    }
  }
  if (separator == ' ') {
    fields.erase(std::remove(fields.begin(), fields.end(), std::string_view()), fields.end());
  } else if (fields.size() > 1 && fields.back().empty()) {
    fields.pop_back();  // many programs end each line with a separator
  }
  return fields;
}

/// The number that a field holds; an empty field and the usual words for a missing value are not-a-number.
std::optional<double> numberOf(std::string_view field, bool decimalComma) {
  std::array<char, longestNumber> text{};
  if (field.size() > text.size()) {
    return {};
  }
  std::transform(field.begin(), field.end(), text.begin(), [&](char c) {
    return c == ',' && decimalComma ? '.' : c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  std::string_view number(text.data(), field.size());
  for (const std::string_view missing : {"", "nan", "na", "n/a", "#n/a", "null", "-"}) {
    if (number == missing) {
      return notANumber;
    }
  }
  if (number.front() == '+') {
    number.remove_prefix(1);
  }
  double value = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
  if (end != number.data() + number.size() || error == std::errc::invalid_argument) {
    return {};
  }
  return error == std::errc::result_out_of_range ? notANumber : value;
}

bool isBlank(const std::string& line) {
  return line.find_first_not_of(" \t;,") == std::string::npos;
}

bool isRamp(const Values& values) {
  for (std::size_t i = 1; i < values.size(); ++i) {
    if (!(values[i] == values[i - 1] + 1)) {
      return false;
    }
  }
  return values.size() > 2 && (values[0] == 0 || values[0] == 1);
}

/// A table of numbers, a row of pixels per line, as the programs of cameras export it. Lines before the table are
/// skipped, and so are the numbers of columns and rows that some programs write around it. The file is read twice: once
/// for the table's place and size, and again for its values.
class TableReader : public ImageReader {
 public:
  TableReader(SharedBytes source, const std::string& file) : ImageReader(std::move(source), file), lines(*bytes, file) {
    findTable();
    countRows();
  }

  std::size_t count() const override { return 1; }
  ImageLayout layout(std::size_t) const override { return {size, Sample::float64, 1}; }
  bool isResult() const override { return result; }

  std::string note() const override {
    std::string text;
    if (firstLine > 1 && !result) {
      text = firstLine == 2
                 ? "the first line is no row of the table and was skipped"
                 : "the first " + std::to_string(firstLine - 1) + " lines are no rows of the table and were skipped";
    }
    if (rowNumbers) {
      text += (text.empty() ? "" : "; ") + std::string("the first column numbers the rows and was left out");
    }
    return text;
  }

  void read(std::size_t, const Piece& receive) override {
    goToTable();
    Values values;
    for (int y = 0; y < size.height; ++y) {
      nextRow(values);
      receive(y, 0, size.width, values.data() + (rowNumbers ? 1 : 0));
    }
  }

 private:
  [[noreturn]] void failLine(const std::string& reason) const {
    fail("line " + std::to_string(lines.number()) + " " + reason);
  }

  /// Values of the line; false when it holds anything else.
  bool parse(const std::string& line, Values& values) const {
    values.clear();
    for (const std::string_view field : fieldsOf(line, separation.separator)) {
      const std::optional<double> number = numberOf(field, separation.decimalComma);
      if (!number) {
        return false;
      }
      values.push_back(*number);
    }
    return true;
  }

  /// The table starts with the first of two lines, or with the only one, that hold the same number of values.
  void findTable() {
    std::string line;
    Values before;
    std::uint64_t lineBefore = 0;
    bool labelled = false;
    int numericLines = 0;
    while (lines.next(line)) {
      if (lines.number() == 1) {
        result = line.rfind("# ", 0) == 0 && isResultMark(line.substr(2));
      }
      if (isBlank(line) || line.front() == '#') {
        continue;
      }
      separation = separationOf(line);
      Values values;
      const bool numeric = parse(line, values);
      numericLines += numeric ? 1 : 0;
      if (!numeric || values.size() < 2) {
        labelled = startsWithoutNumber(line);
        before.clear();
        continue;
      }
      if (values.size() != before.size()) {
        before = values;
        lineBefore = lines.number();
        continue;
      }
      // A row 0, 1, 2 ... or with no value in its first place, and numbers below that place, are labels.
      Values columns = before;
      const bool corner = std::isnan(columns.front());
      if (corner) {
        columns.erase(columns.begin());
      }
      if (isRamp(columns) && !isRamp(values)) {
        labelled = labelled || corner;
        firstLine = lines.number();
      } else {
        firstLine = lineBefore;
      }
      mayHaveRowNumbers = labelled;
      width = values.size();
      return;
    }
    if (numericLines > 1) {
      fail("holds rows of different lengths; export the table again");
    }
    if (before.empty()) {
      fail(
          std::string("holds no table of numbers; export the values with a row of the image per line, separated by "
                      "commas, semicolons or tabs"));
    }
    firstLine = lineBefore;
    width = before.size();
  }

  /// Whether the line titles columns, the first of which holds no values: that title is empty, or the others number
  /// the columns.
  bool startsWithoutNumber(const std::string& line) const {
    const auto fields = fieldsOf(line, separation.separator);
    if (fields.size() < 3 || fields.front().empty()) {
      return fields.size() > 2;
    }
    Values numbers;
    for (std::size_t i = 1; i < fields.size(); ++i) {
      numbers.push_back(numberOf(fields[i], separation.decimalComma).value_or(notANumber));
    }
    return isRamp(numbers);
  }

  void goToTable() {
    lines.rewind();
    std::string line;
    while (lines.number() + 1 < firstLine) {
      lines.next(line);
    }
    separationKnown = false;
  }

  /// The values of the table's next line; false at the end of the file.
  bool nextRow(Values& values) {
    std::string line;
    do {
      if (!lines.next(line)) {
        return false;
      }
    } while (isBlank(line));
    if (!separationKnown) {
      separation = separationOf(line);
      separationKnown = true;
    }
    if (!parse(line, values)) {
      failLine("holds something else than numbers; remove what is no row of the image");
    }
    if (values.size() != width) {
      failLine("has " + std::to_string(values.size()) + " values, the rows before " + std::to_string(width) +
               "; export the table again");
    }
    return true;
  }

  void countRows() {
    goToTable();
    std::uint64_t rows = 0;
    bool numbered = mayHaveRowNumbers;
    double firstNumber = 0;
    for (Values values; nextRow(values); ++rows) {
      checkedSize(width, rows + 1);
      firstNumber = rows == 0 ? values.front() : firstNumber;
      numbered = numbered && values.front() == firstNumber + static_cast<double>(rows);
    }
    rowNumbers = numbered && (firstNumber == 0 || firstNumber == 1);
    size = checkedSize(width - (rowNumbers ? 1 : 0), rows);
  }

  TextLines lines;
  Separation separation{',', false};
  bool separationKnown = false;
  std::uint64_t firstLine = 1;
  std::size_t width = 0;
  bool mayHaveRowNumbers = false;
  bool rowNumbers = false;
  bool result = false;
  cv::Size size;
};

}  // namespace

bool looksLikeText(const std::string& start) {
  if (start.compare(0, 2, "\xFF\xFE") == 0 || start.compare(0, 2, "\xFE\xFF") == 0) {
    return true;
  }
  return std::none_of(start.begin(), start.end(),
                      [](unsigned char c) { return c < ' ' && c != '\t' && c != '\n' && c != '\r'; });
}

std::unique_ptr<ImageReader> openTable(SharedBytes bytes, const std::string& name) {
  return std::make_unique<TableReader>(std::move(bytes), name);
}

}  // namespace movra::tool
