#include "tools/movra-sr/reconstruction/BadPixelList.h"

#include <algorithm>
#include <set>
#include <utility>

#include "vision/superresolution/BadPixel.h"

namespace movra::tool {

namespace {

using List = cv::Mat_<unsigned short>;

constexpr int listColumns = 10;
constexpr unsigned int usualRadius = 5;
constexpr int mostBursts = 65535;

/// A row without replacements.
List rowOf(int x, int y, cv::Size size) {
  List row(1, listColumns, static_cast<unsigned short>(0));
  row(0) = static_cast<unsigned short>(x);
  row(1) = static_cast<unsigned short>(y);
  row(2) = static_cast<unsigned short>(size.width);
  row(3) = static_cast<unsigned short>(size.height);
  return row;
}

}  // namespace

void appendNewPixels(List& list, const List& found, cv::Size size, unsigned int radius) {
  std::set<std::pair<int, int>> listed;
  for (int row = 0; row < list.rows; ++row) {
    listed.emplace(list(row, 0), list(row, 1));
  }
  List fresh(0, listColumns);
  for (int row = 0; row < found.rows; ++row) {
    if (listed.count({found(row, 0), found(row, 1)}) == 0) {
      fresh.push_back(found.row(row));
    }
  }
  vision::BadPixel::appendBadPixel(fresh, list, size, radius);
}

int markUnreplaced(List& list, cv::Size size) {
  int unreplaced = 0;
  for (int row = 0; row < list.rows; ++row) {
    if (list(row, 2) != size.width || list(row, 3) != size.height) {
      continue;
    }
    for (int column = 2; column < listColumns; ++column) {
      list(row, column) = list(row, 2 + column % 2);
    }
    ++unreplaced;
  }
  return unreplaced;
}

BadPixelFile grownBy(const BadPixelFile& known, const cv::Mat_<unsigned char>& found) {
  const cv::Size size = found.size();
  BadPixelFile grown{List(0, listColumns), size, known.name, {}};
  std::set<std::pair<int, int>> listed;
  List pixels(0, listColumns);
  for (int row = 0; row < known.list.rows; ++row) {
    const int x = known.list(row, 0);
    const int y = known.list(row, 1);
    if (!listed.emplace(x, y).second) {
      continue;
    }
    // Lists by hand have no replacements.
    pixels.push_back(known.frameSize.empty() ? rowOf(x, y, size) : List(known.list.row(row)));
    const int bursts = known.burstsOf(row);
    const bool again = bursts > 0 && found(y, x) != 0;
    grown.bursts.push_back(again ? std::min(bursts + 1, mostBursts) : bursts);
  }
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      if (found(y, x) != 0 && listed.emplace(x, y).second) {
        pixels.push_back(rowOf(x, y, size));
        grown.bursts.push_back(1);
      }
    }
  }
  appendNewPixels(grown.list, pixels, size, usualRadius);
  markUnreplaced(grown.list, size);
  return grown;
}

}  // namespace movra::tool
