#include "vision/superresolution/detail/registration/CornerDetection.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "vision/superresolution/detail/registration/RegistrationKernels.h"

namespace movra::vision::detail {

namespace {

constexpr double qualityLevel = 0.1;
constexpr int minSquaredDistance = 4;
constexpr std::size_t maxCorners = 100;

bool isNearOneOf(const std::vector<cv::Point_<float>>& corners, cv::Point_<float> place) {
  return std::any_of(corners.begin(), corners.end(), [=](const cv::Point_<float>& corner) {
    const cv::Point_<float> d = place - corner;
    return d.x * d.x + d.y * d.y < minSquaredDistance;
  });
}

}  // namespace

void CornerDetector::collectMaxima() {
  const cv::Size size = strength->imageSize();
  float largest = 0;
  for (int y = 0; y < size.height; ++y) {
    largest = std::max(largest, strength->largestOfRow(y));
  }
  const auto threshold = static_cast<float>(static_cast<double>(largest) * qualityLevel);
  const int inside = size.width - 2;
  isMaximum.resize(static_cast<std::size_t>(std::max(inside, 0)));
  maxima.clear();
  for (int y = 1; y < size.height - 1 && inside > 0; ++y) {
    if (!(strength->largestOfRow(y) > threshold)) {
      continue;
    }
    const float* row = strength->row(y) + 1;
    registrationKernels().markMaxima(row, size.width, threshold, inside, isMaximum.data());
    const unsigned char* found = isMaximum.data();
    const unsigned char* const end = found + inside;
    while ((found = static_cast<const unsigned char*>(std::memchr(found, 1, static_cast<std::size_t>(end - found)))) !=
           nullptr) {
      maxima.push_back(row + (found - isMaximum.data()));
      ++found;
    }
  }
}

std::vector<cv::Point_<float>> CornerDetector::find(const cv::Mat_<float>& image) {
  std::vector<cv::Point_<float>> corners;
  if (image.empty()) {
    return corners;
  }
  if (strength == nullptr || strength->imageSize() != image.size()) {
    strength = std::make_unique<CornerStrength>(image.size());
  }
  strength->compute(image);
  collectMaxima();

  // The strongest first; of equal ones that which is further down, or to the right.
  const auto weaker = [](const float* a, const float* b) {
    return *a != *b ? *a < *b : std::less<const float*>()(a, b);
  };
  std::make_heap(maxima.begin(), maxima.end(), weaker);
  while (!maxima.empty() && corners.size() < maxCorners) {
    std::pop_heap(maxima.begin(), maxima.end(), weaker);
    const std::ptrdiff_t i = maxima.back() - strength->row(0);
    maxima.pop_back();
    const cv::Point_<float> place(static_cast<float>(i % image.cols), static_cast<float>(i / image.cols));
    if (!isNearOneOf(corners, place)) {
      corners.push_back(place);
    }
  }
  return corners;
}

}  // namespace movra::vision::detail
