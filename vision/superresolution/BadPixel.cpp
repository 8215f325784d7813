#include "vision/superresolution/BadPixel.h"

#include <algorithm>

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

}  // namespace movra::vision
