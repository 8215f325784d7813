#include "tools/movra-sr/io/NaturalOrder.h"

#include <cstddef>

namespace movra::tool {

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Takes the run of digits at `at` out of the text, without its leading zeros. Runs of any length compare
/// right.
std::string takeNumber(const std::string& text, std::size_t& at) {
  while (at < text.size() && text[at] == '0') {
    ++at;
  }
  const std::size_t begin = at;
  while (at < text.size() && isDigit(text[at])) {
    ++at;
  }
  return text.substr(begin, at - begin);
}

}  // namespace

bool naturalLess(const std::string& a, const std::string& b) {
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      const std::string left = takeNumber(a, i);
      const std::string right = takeNumber(b, j);
      if (left.size() != right.size()) {
        return left.size() < right.size();
      }
      if (left != right) {
        return left < right;
      }
    } else {
      if (a[i] != b[j]) {
        return a[i] < b[j];
      }
      ++i;
      ++j;
    }
  }
  const bool leftEnded = i == a.size();
  const bool rightEnded = j == b.size();
  if (leftEnded != rightEnded) {
    return leftEnded;
  }
  return a < b;
}

}  // namespace movra::tool
