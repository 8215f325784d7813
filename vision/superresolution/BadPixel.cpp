#include "vision/superresolution/BadPixel.h"

#include <algorithm>

#include "vision/superresolution/detail/badpixels/BadPixelDrawing.h"
#include "vision/superresolution/detail/badpixels/BadPixelReplacement.h"
#include "vision/superresolution/detail/badpixels/BadPixelSearch.h"

namespace movra::vision {

BadPixel::BadPixel(unsigned int a, unsigned int b, const std::vector<cv::Point_<unsigned int>>& replacements,
                   const std::vector<unsigned short>& reasons)
    : replacementPixels(replacements), column(b), row(a), defectReasons(reasons) {}

BadPixel::~BadPixel() = default;

void BadPixel::set(unsigned int a, unsigned int b) {
  row = a;
  column = b;
}

void BadPixel::set(const cv::Point_<unsigned int>& p) {
  set(p.x, p.y);
}

cv::Point_<unsigned int> BadPixel::pos() const {
  return {column, row};
}

void BadPixel::pos(unsigned int& a, unsigned int& b) const {
  a = row;
  b = column;
}

unsigned int BadPixel::x() const {
  return column;
}

unsigned int BadPixel::y() const {
  return row;
}

void BadPixel::addReplacementPixel(unsigned int a, unsigned int b) {
  replacementPixels.emplace_back(b, a);
}

void BadPixel::addReplacementPixel(const cv::Point_<unsigned int>& p) {
  replacementPixels.push_back(p);
}

std::vector<cv::Point_<unsigned int>> BadPixel::getReplacementPixels() const {
  return replacementPixels;
}

std::size_t BadPixel::getNumberOfReplacementPixels() const {
  return replacementPixels.size();
}

void BadPixel::clearReplacements() {
  replacementPixels.clear();
}

void BadPixel::addDefectReasons(const std::vector<unsigned short>& reasons) {
  for (const unsigned short reason : reasons) {
    if (std::find(defectReasons.begin(), defectReasons.end(), reason) == defectReasons.end()) {
      defectReasons.push_back(reason);
    }
  }
}

std::vector<unsigned short> BadPixel::retrieveDefectReasons() const {
  return defectReasons;
}

bool BadPixel::buildValueHistogram(const cv::Mat_<short>& img, cv::Mat_<int>& hist, short lo, short hi) {
  return detail::buildValueHistogram(img, hist, lo, hi);
}

bool BadPixel::performNeighbourSearch(const cv::Mat_<short>& img, cv::Mat_<int>& hist, cv::Mat_<unsigned short>& list,
                                      short lo, short hi, unsigned short maxCount, unsigned short window) {
  return detail::findBadPixels(img, hist, list, lo, hi, maxCount, window);
}

BadPixel::Query BadPixel::computeReplacePixelQuery(int radius) {
  return detail::replacementQuery(radius);
}

bool BadPixel::calculateSingleReplacePixelSimpleNhood(cv::Mat_<unsigned short>& list, unsigned short index,
                                                      cv::Size_<int> size) {
  return detail::replaceFromSimpleNeighbourhood(list, index, size);
}

bool BadPixel::chooseReplacements(cv::Mat_<unsigned short>& list, unsigned short index, cv::Size_<int> size,
                                  const Query& query, const std::function<void(unsigned int)>& addBad,
                                  const std::function<bool(unsigned int)>& isBad) {
  return detail::chooseReplacements(list, index, size, query, addBad, isBad);
}

bool BadPixel::calculateSingleReplacePixel(cv::Mat_<unsigned short>& list, unsigned short index, cv::Size_<int> size,
                                           const Query& query) {
  return detail::chooseReplacements(list, index, size, query);
}

bool BadPixel::calculateSingleReplacePixel(cv::Mat_<unsigned short>& list, unsigned short index, cv::Size_<int> size,
                                           int radius) {
  if (radius == 3) {
    return calculateSingleReplacePixelSimpleNhood(list, index, size);
  }
  return calculateSingleReplacePixel(list, index, size, computeReplacePixelQuery(radius));
}

bool BadPixel::calculateReplacePixels(cv::Mat_<unsigned short>& list, cv::Size_<int> size, unsigned int radius) {
  return detail::chooseAllReplacements(list, size, static_cast<int>(radius));
}

bool BadPixel::appendBadPixel(const cv::Mat& newList, cv::Mat& list, cv::Size_<int> size, unsigned int radius) {
  return detail::appendBadPixels(newList, list, size, static_cast<int>(radius));
}

void BadPixel::drawBadPixels(const cv::Mat& list, cv::Mat_<cv::Vec<unsigned char, 3>>& img,
                             const cv::Scalar_<double>& colour, unsigned int size, bool randomColour) {
  detail::drawBadPixels(list, img, colour, size, randomColour);
}

}  // namespace movra::vision
