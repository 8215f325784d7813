#include "vision/superresolution/SuperResolutionBadPixelHandling.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "movra/Exception.h"
#include "vision/superresolution/SuperResolutionTypes.h"
#include "vision/superresolution/detail/badpixels/FrameKernels.h"
#include "vision/superresolution/detail/badpixels/ValueKey.h"

namespace movra::vision {

namespace {

using detail::bitsOf;
using detail::frameKernels;
using detail::isFlag;
using detail::isMarked;
using detail::keyOf;
using detail::setBits;
using detail::ValidRange;
using detail::valueOf;
using detail::ValueScan;

enum DefectCode : unsigned char { good, underRange, overRange, invalid, belowValid, aboveValid };

constexpr float scale = 2;
constexpr int maskRadius = 3;
constexpr int maxUnreplaceable = 10;
constexpr unsigned mostReserved = 4096;  // maps; histories of this length and less never reallocate

ValidRange validRange(float lowest, float highest) {
  return {keyOf(lowest), keyOf(highest)};
}

DefectCode classify(float value, ValidRange valid) {
  constexpr std::uint32_t infinity = 0x7f800000;
  const std::uint32_t bits = bitsOf(value);
  if (bits == flag::overRange) {
    return overRange;
  }
  if (bits == flag::underRange) {
    return underRange;
  }
  if (isFlag(bits)) {
    return invalid;
  }
  if ((bits & 0x7fffffff) > infinity) {
    // NaN
    return invalid;
  }
  if (keyOf(value) > valid.highest) {
    return aboveValid;
  }
  if (keyOf(value) < valid.lowest) {
    return belowValid;
  }
  return good;
}

ValueScan scanValues(const cv::Mat_<float>& img, ValidRange valid) {
  ValueScan scan{valid.highest, valid.lowest, 0};
  for (int y = 0; y < img.rows; ++y) {
    frameKernels().scanValues(img[y], img.cols, valid, &scan);
  }
  return scan;
}

// The first pixel in raster order that equals the value of `key`, where +0 equals -0; one must exist.
cv::Point_<int> firstPlaceOf(std::int32_t key, const cv::Mat_<float>& img) {
  const auto unsignedZero = [](std::int32_t k) { return k == detail::keyOfNegativeZero ? 0 : k; };
  for (int y = 0; y < img.rows; ++y) {
    for (int x = 0; x < img.cols; ++x) {
      if (unsignedZero(keyOf(img(y, x))) == unsignedZero(key)) {
        return {x, y};
      }
    }
  }
  return {};
}

// The extreme value that a scan found, and its first place if `place` is given. A scan that updated nothing
// still holds its start.
float extremeValue(std::int32_t key, std::int32_t start, const cv::Mat_<float>& img, cv::Point_<int>* place) {
  const bool isZero = key == 0 || key == detail::keyOfNegativeZero;
  if (key == start || (!place && !isZero)) {
    return valueOf(key);
  }
  const cv::Point_<int> first = firstPlaceOf(key, img);
  if (place) {
    *place = first;
  }
  return img(first);
}

std::uint32_t flagOf(unsigned char code) {
  switch (code) {
    case underRange:
      return flag::underRange;
    case overRange:
      return flag::overRange;
    default:
      return flag::invalid;
  }
}

// Flags the block around the high-resolution place (hx, hy), which is known to be finite and near the image.
void flagBlock(cv::Mat_<float>& hr, float hx, float hy, std::uint32_t flagValue) {
  const int row = static_cast<int>(std::floor(hy));
  const int column = static_cast<int>(std::floor(hx));
  const int lastRow = std::min(row + maskRadius, hr.rows - 1);
  const int lastColumn = std::min(column + maskRadius, hr.cols - 1);
  for (int y = std::max(row - maskRadius, 0); y <= lastRow; ++y) {
    for (int x = std::max(column - maskRadius, 0); x <= lastColumn; ++x) {
      setBits(hr(y, x), flagValue);
    }
  }
}

// Whether a coordinate truncates to an index below n. Positions in (-1, 0) land on index 0.
bool truncatesInto(float position, int n) {
  return position > -1 && position < static_cast<float>(n);
}

}  // namespace

SuperResolutionBadPixelHandling::SuperResolutionBadPixelHandling(unsigned int count)
    : frameCount(count), neighbourOffsets{{-1, 0}, {1, 0}, {0, -1}, {0, 1}} {
  defectMaps.reserve(std::min(count, mostReserved));
  setDataIsNUC(false);
}

void SuperResolutionBadPixelHandling::setDataIsNUC(bool isNUC) {
  minValidValue = isNUC ? -32768.0f : -274.0f;
  maxValidValue = isNUC ? 32767.0f : 5000.0f;
}

void SuperResolutionBadPixelHandling::getMinMaxVal(const cv::Mat_<float>& img, float& minVal, float& maxVal,
                                                   cv::Point_<int>* minLoc, cv::Point_<int>* maxLoc) const {
  const ValidRange valid = validRange(minValidValue, maxValidValue);
  const ValueScan scan = scanValues(img, valid);
  minVal = extremeValue(scan.smallest, valid.highest, img, minLoc);
  maxVal = extremeValue(scan.largest, valid.lowest, img, maxLoc);
}

bool SuperResolutionBadPixelHandling::getReplacementValue_(const cv::Mat_<float>& img, int x, int y,
                                                           float& value) const {
  const ValidRange valid = validRange(minValidValue, maxValidValue);
  float sum = 0;
  int count = 0;
  for (const cv::Point_<int>& offset : neighbourOffsets) {
    // Unsigned, so that a place left of or above the image is one far outside.
    const unsigned int column = static_cast<unsigned int>(x) + static_cast<unsigned int>(offset.x);
    const unsigned int row = static_cast<unsigned int>(y) + static_cast<unsigned int>(offset.y);
    if (column >= static_cast<unsigned int>(img.cols) || row >= static_cast<unsigned int>(img.rows)) {
      continue;
    }
    const float neighbour = img(static_cast<int>(row), static_cast<int>(column));
    if (classify(neighbour, valid) != good) {
      continue;
    }
    sum += neighbour;
    ++count;
  }
  if (count > 0) {
    value = sum / static_cast<float>(count);
  }
  const bool onBorder = x == 0 || y == 0 || x == img.cols - 1 || y == img.rows - 1;
  return count == 4 || (count == 3 && onBorder);
}

int SuperResolutionBadPixelHandling::detectAndReplaceBadPixel(cv::Mat_<float>& frame) {
  const ValidRange valid = validRange(minValidValue, maxValidValue);
  // The map is in the history before anything can fail: history and window hold the same frames also without memory. An
  // empty map then tells that nothing is known of the frame.
  cv::Mat_<unsigned char> unkept;
  cv::Mat_<unsigned char>& defectMap = frameCount > 0 ? pushSpareMap() : unkept;
  if (defectMap.size() != frame.size()) {
    defectMap.release();
    defectMap = cv::Mat_<unsigned char>(frame.size());
  }
  defectMap.setTo(good);

  const ValueScan scan = scanValues(frame, valid);
  Repair repair;
  if (scan.defects > 0) {
    const float minVal = extremeValue(scan.smallest, valid.highest, frame, nullptr);
    const float maxVal = extremeValue(scan.largest, valid.lowest, frame, nullptr);
    repair = replaceDefects(frame, defectMap, minVal, maxVal);
  }
  if (repair.unreplaceable > maxUnreplaceable) {
    MOVRA_THROW("Too many defect pixels. No processing possible.");
  }
  return repair.result;
}

cv::Mat_<unsigned char>& SuperResolutionBadPixelHandling::pushSpareMap() {
  if (defectMaps.size() < frameCount) {
    defectMaps.emplace_back();
  } else {
    std::rotate(defectMaps.begin(), defectMaps.begin() + 1, defectMaps.end());
  }
  return defectMaps.back();
}

SuperResolutionBadPixelHandling::Repair SuperResolutionBadPixelHandling::replaceDefects(
    cv::Mat_<float>& frame, cv::Mat_<unsigned char>& defectMap, float minVal, float maxVal) const {
  const ValidRange valid = validRange(minValidValue, maxValidValue);
  Repair repair;
  for (int y = 0; y < frame.rows; ++y) {
    ValueScan row{};
    frameKernels().scanValues(frame[y], frame.cols, valid, &row);
    if (row.defects == 0) {
      continue;
    }
    for (int x = 0; x < frame.cols; ++x) {
      const DefectCode code = classify(frame(y, x), valid);
      if (code == good) {
        continue;
      }
      defectMap(y, x) = code;
      float value = 0;
      if (!getReplacementValue_(frame, x, y, value)) {
        value = code == overRange || code == aboveValid    ? maxVal
                : code == underRange || code == belowValid ? minVal
                                                           : 0.0f;
        if (code != overRange && code != underRange) {
          repair.result = -2;
        }
        if (code == invalid) {
          ++repair.unreplaceable;
        }
      }
      frame(y, x) = value;
    }
  }
  return repair;
}

void SuperResolutionBadPixelHandling::maskBadPixel(cv::Mat_<float>& hr, const std::vector<cv::Point_<float>>& shifts) {
  if (shifts.size() != defectMaps.size()) {
    MOVRA_THROW("maskBadPixel(): number of shifts ist not equal to number of defectMaps");
  }
  // Right of this, a block ends beyond the last column. Compared as floats, because a shift can be anything.
  const float endColumn = static_cast<float>(hr.cols) + maskRadius;
  for (std::size_t k = 0; k < defectMaps.size(); ++k) {
    const cv::Mat_<unsigned char>& defectMap = defectMaps[k];
    if (cv::countNonZero(defectMap) == 0) {
      continue;
    }
    for (int y = 0; y < defectMap.rows; ++y) {
      const float hy = scale * (static_cast<float>(y) - shifts[k].y);
      if (!(hy >= 0 && hy < static_cast<float>(hr.rows)) || cv::countNonZero(defectMap.row(y)) == 0) {
        continue;
      }
      for (int x = 0; x < defectMap.cols; ++x) {
        if (defectMap(y, x) == good) {
          continue;
        }
        const float hx = scale * (static_cast<float>(x) - shifts[k].x);
        if (hx >= 0 && hx < endColumn) {
          flagBlock(hr, hx, hy, flagOf(defectMap(y, x)));
        }
      }
    }
  }
}

void SuperResolutionBadPixelHandling::replaceMaskedPixel(cv::Mat_<float>& hr,
                                                         const std::vector<cv::Point_<float>>& shifts,
                                                         const std::vector<cv::Mat_<float>>& frames) {
  if (defectMaps.empty()) {
    MOVRA_THROW("bad pixel masks not initalized");
  }
  for (int y = 0; y < hr.rows; ++y) {
    if (frameKernels().countMarked(hr[y], hr.cols) == 0) {
      continue;
    }
    for (int x = 0; x < hr.cols; ++x) {
      if (isMarked(bitsOf(hr(y, x)))) {
        replaceFromFrames(hr(y, x), x, y, shifts, frames);
      }
    }
  }
}

void SuperResolutionBadPixelHandling::replaceFromFrames(float& value, int x, int y,
                                                        const std::vector<cv::Point_<float>>& shifts,
                                                        const std::vector<cv::Mat_<float>>& frames) const {
  const std::size_t complete = std::min({defectMaps.size(), shifts.size(), frames.size()});
  float sum = 0;
  int count = 0;
  for (std::size_t k = 0; k < complete; ++k) {
    const float lx = shifts[k].x + 0.5f * static_cast<float>(x);
    const float ly = shifts[k].y + 0.5f * static_cast<float>(y);
    const int rows = std::min({defectMaps[0].rows, defectMaps[k].rows, frames[k].rows});
    const int columns = std::min({defectMaps[0].cols, defectMaps[k].cols, frames[k].cols});
    if (!truncatesInto(lx, columns) || !truncatesInto(ly, rows)) {
      continue;
    }
    const int column = static_cast<int>(lx);
    const int row = static_cast<int>(ly);
    if (defectMaps[k](row, column) != good) {
      continue;
    }
    sum += frames[k](row, column);
    ++count;
  }
  if (count > 0) {
    value = sum / static_cast<float>(count);
  }
}

void SuperResolutionBadPixelHandling::colorBadPixel(const cv::Mat_<float>& img,
                                                    cv::Mat_<cv::Vec<unsigned char, 3>>& colour) {
  const int rows = std::min(img.rows, colour.rows);
  const int columns = std::min(img.cols, colour.cols);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < columns; ++x) {
      const std::uint32_t bits = bitsOf(img(y, x));
      if (bits == flag::overRange) {
        colour(y, x) = {0, 0, 255};
      }
      if (bits == flag::underRange) {
        colour(y, x) = {255, 0, 0};
      }
    }
  }
}

void SuperResolutionBadPixelHandling::clearDefectMaps() {
  defectMaps.clear();
}

}  // namespace movra::vision
