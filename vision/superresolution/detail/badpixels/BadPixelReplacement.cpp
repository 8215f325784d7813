#include "vision/superresolution/detail/badpixels/BadPixelReplacement.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>

#include "vision/superresolution/detail/badpixels/BadPixelList.h"

namespace movra::vision::detail {

namespace {

// Positions are unsigned, so that one left of or above the image wraps to one far outside.
using Position = cv::Point_<unsigned int>;
using List = cv::Mat_<unsigned short>;
using Places = std::set<unsigned int>;
using Query = ReplacementQuery;

// An image that contains every position of a list.
const cv::Size_<int> everyPosition(largestPosition + 1, largestPosition + 1);

// Offsets of the fixed neighbourhood in the order of trial: up, right, down, left.
constexpr int directionCount = 4;
constexpr int simpleNeighbourhood[directionCount][7][2] = {
    {{0, -1}, {0, -2}, {-1, -1}, {1, -1}, {-1, -2}, {1, -2}, {0, -3}},
    {{1, 0}, {2, 0}, {1, -1}, {1, 1}, {2, -1}, {2, 1}, {3, 0}},
    {{0, 1}, {0, 2}, {1, 1}, {-1, 1}, {1, 2}, {-1, 2}, {0, 3}},
    {{-1, 0}, {-2, 0}, {-1, 1}, {-1, -1}, {-2, 1}, {-2, -1}, {-3, 0}}};

// Whether a pixel can be a replacement: inside the image, and where a list can hold its position.
bool isUsable(const Position& p, cv::Size_<int> size) {
  const auto end = [](int extent) { return static_cast<unsigned int>(std::clamp(extent, 0, largestPosition + 1)); };
  return p.x < end(size.width) && p.y < end(size.height);
}

Position moved(const Position& p, int dx, int dy) {
  return {p.x + static_cast<unsigned int>(dx), p.y + static_cast<unsigned int>(dy)};
}

// Pixels are numbered row by row, as in an image of the given size.
unsigned int placeOf(const Position& p, cv::Size_<int> size) {
  return p.y * static_cast<unsigned int>(size.width) + p.x;
}

Position badPosition(const List& list, int row) {
  return {list(row, 0), list(row, 1)};
}

Position replacement(const List& list, int row, int k) {
  const int column = firstReplacement + 2 * k;
  return {list(row, column), list(row, column + 1)};
}

void setReplacement(List& list, int row, int k, const Position& p) {
  const int column = firstReplacement + 2 * k;
  list(row, column) = static_cast<unsigned short>(p.x);
  list(row, column + 1) = static_cast<unsigned short>(p.y);
}

bool isListed(const List& list, const Position& p) {
  for (int row = 0; row < list.rows; ++row) {
    if (badPosition(list, row) == p) {
      return true;
    }
  }
  return false;
}

Places placesOf(const List& list, cv::Size_<int> size) {
  Places places;
  for (int row = 0; row < list.rows; ++row) {
    places.insert(placeOf(badPosition(list, row), size));
  }
  return places;
}

bool hasRow(const List& list, int row) {
  return isBadPixelList(list) && row < list.rows;
}

// Chooses the replacements of an existing row; false, with nothing changed, if there is none.
template <class IsBad>
bool chooseFor(List& list, int row, cv::Size_<int> size, const Query& query, IsBad isBad) {
  using Candidate = std::pair<float, Position>;
  const Position bad = badPosition(list, row);
  std::vector<Candidate> nearest;  // of the directions that have one
  for (const auto& direction : query) {
    for (const auto& [distance, offset] : direction) {
      const Position target = moved(bad, offset.x, offset.y);
      if (!isUsable(target, size) || isBad(placeOf(target, size))) {
        continue;
      }
      nearest.emplace_back(distance, target);
      break;
    }
  }
  if (nearest.empty()) {
    return false;
  }

  std::array<Candidate, replacementCount> chosen;
  for (std::size_t k = 0; k < chosen.size(); ++k) {
    chosen[k] = nearest[k % nearest.size()];
  }
  std::stable_sort(chosen.begin(), chosen.end(),
                   [](const Candidate& a, const Candidate& b) { return a.first < b.first; });
  for (int k = 0; k < replacementCount; ++k) {
    setReplacement(list, row, k, chosen[static_cast<std::size_t>(k)].second);
  }
  return true;
}

// The first good pixel of the fixed neighbourhood, direction by direction from `first` on.
bool findSimpleReplacement(const List& list, int row, cv::Size_<int> size, int first, Position& found) {
  for (int i = 0; i < directionCount; ++i) {
    for (const auto& offset : simpleNeighbourhood[(first + i) % directionCount]) {
      const Position target = moved(badPosition(list, row), offset[0], offset[1]);
      if (!isUsable(target, size) || isListed(list, target)) {
        continue;
      }
      found = target;
      return true;
    }
  }
  return false;
}

template <class Predicate>
bool anyReplacement(const List& list, int row, Predicate predicate) {
  for (int k = 0; k < replacementCount; ++k) {
    if (predicate(replacement(list, row, k))) {
      return true;
    }
  }
  return false;
}

}  // namespace

ReplacementQuery replacementQuery(int radius) {
  Query query(directionCount);
  for (std::int64_t j = 0; j < radius; ++j) {
    for (std::int64_t i = 0; i <= radius; ++i) {
      const float distance = std::sqrt(static_cast<float>(i * i + j * j));
      if (distance > static_cast<float>(radius - 1)) {
        // and so are all further to the side
        break;
      }
      const int side = static_cast<int>(i);
      const int down = static_cast<int>(j + 1);
      query[0].emplace(distance, cv::Point_<int>(side, down));
      if (side != 0) {
        query[0].emplace(distance, cv::Point_<int>(-side, down));
      }
    }
  }
  for (const auto& [distance, offset] : query[0]) {
    query[1].emplace(distance, cv::Point_<int>(-offset.y, offset.x));
    query[2].emplace(distance, cv::Point_<int>(-offset.x, -offset.y));
    query[3].emplace(distance, cv::Point_<int>(offset.y, -offset.x));
  }
  return query;
}

bool replaceFromSimpleNeighbourhood(List& list, int index, cv::Size_<int> size) {
  if (!hasRow(list, index)) {
    return false;
  }
  for (int k = 0; k < replacementCount; ++k) {
    Position found;
    if (!findSimpleReplacement(list, index, size, k, found)) {
      return false;
    }
    setReplacement(list, index, k, found);
  }
  return true;
}

bool chooseReplacements(List& list, int index, cv::Size_<int> size, const Query& query,
                        const std::function<void(unsigned int)>& addBad,
                        const std::function<bool(unsigned int)>& isBad) {
  if (!hasRow(list, index) || query.size() != directionCount) {
    return false;
  }
  if (addBad) {
    for (const unsigned int place : placesOf(list, size)) {
      addBad(place);
    }
  }
  return chooseFor(list, index, size, query, isBad);
}

bool chooseReplacements(List& list, int index, cv::Size_<int> size, const Query& query) {
  if (!hasRow(list, index) || query.size() != directionCount) {
    return false;
  }
  const Places badPlaces = placesOf(list, size);
  return chooseFor(list, index, size, query, [&](unsigned int place) { return badPlaces.count(place) > 0; });
}

bool chooseAllReplacements(List& list, cv::Size_<int> size, int radius) {
  if (list.rows == 0) {
    return true;
  }
  if (!isBadPixelList(list)) {
    return false;
  }
  const Places badPlaces = placesOf(list, size);
  const Query query = replacementQuery(radius);
  const auto isBad = [&](unsigned int place) { return badPlaces.count(place) > 0; };
  bool all = true;
  for (int row = 0; row < list.rows; ++row) {
    all &= chooseFor(list, row, size, query, isBad);
  }
  return all;
}

bool appendBadPixels(const cv::Mat& newList, cv::Mat& list, cv::Size_<int> size, int radius) {
  if (list.empty()) {
    list = cv::Mat(0, newList.cols, newList.type());
  }
  if (newList.rows == 0) {
    return true;
  }
  if (!isBadPixelList(newList) || !isBadPixelList(list)) {
    return false;
  }

  List combined = list.clone();
  combined.push_back(List(newList));
  const int oldRows = list.rows;
  const Places oldPositions = placesOf(combined.rowRange(0, oldRows), everyPosition);
  const Places newPositions = placesOf(combined.rowRange(oldRows, combined.rows), everyPosition);
  const auto isOutdated = [&](int row) {
    return anyReplacement(combined, row, [&](const Position& p) {
      if (row < oldRows) {
        return newPositions.count(placeOf(p, everyPosition)) > 0;
      }
      return oldPositions.count(placeOf(p, everyPosition)) > 0 || p == badPosition(combined, row) || !isUsable(p, size);
    });
  };

  // Built for the first row that needs them.
  Query query;
  Places badPlaces;
  for (int row = 0; row < combined.rows; ++row) {
    if (!isOutdated(row)) {
      continue;
    }
    if (query.empty()) {
      query = replacementQuery(radius);
      badPlaces = placesOf(combined, size);
    }
    chooseFor(combined, row, size, query, [&](unsigned int place) { return badPlaces.count(place) > 0; });
  }
  list = combined;
  return true;
}

}  // namespace movra::vision::detail
