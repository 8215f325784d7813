#include "vision/superresolution/detail/registration/CornerDetection.h"

#include <algorithm>
#include <functional>

#include <opencv2/imgproc.hpp>

#include "vision/superresolution/detail/registration/RegistrationKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int blockSize = 3;
constexpr double qualityLevel = 0.1;
constexpr int minSquaredDistance = 4;
constexpr std::size_t maxCorners = 100;

std::vector<const float*> strongMaxima(const cv::Mat_<float>& strength) {
  if (strength.rows < 3 || strength.cols < 3) {
    return {};
  }
  double largest = 0;
  cv::minMaxLoc(strength, nullptr, &largest);
  const auto threshold = static_cast<float>(largest * qualityLevel);
  std::vector<const float*> maxima;
  const int inside = strength.cols - 2;
  std::vector<unsigned char> isMaximum(static_cast<std::size_t>(inside));
  for (int y = 1; y < strength.rows - 1; ++y) {
    const float* row = strength[y] + 1;
    registrationKernels().markMaxima(row, static_cast<long>(strength.step1()), threshold, inside, isMaximum.data());
    for (auto found = isMaximum.begin(); (found = std::find(found, isMaximum.end(), 1)) != isMaximum.end(); ++found) {
      maxima.push_back(row + (found - isMaximum.begin()));
    }
  }
  return maxima;
}

bool isNearOneOf(const std::vector<cv::Point_<float>>& corners, cv::Point_<float> place) {
  return std::any_of(corners.begin(), corners.end(), [=](const cv::Point_<float>& corner) {
    const cv::Point_<float> d = place - corner;
    return d.x * d.x + d.y * d.y < minSquaredDistance;
  });
}

}  // namespace

std::vector<cv::Point_<float>> findCorners(const cv::Mat_<float>& image) {
  if (image.empty()) {
    return {};
  }
  cv::Mat_<float> strength;
  cv::cornerMinEigenVal(image, strength, blockSize);
  std::vector<const float*> maxima = strongMaxima(strength);

  // The strongest first; of equal ones that which is further down, or to the right.
  const auto weaker = [](const float* a, const float* b) {
    return *a != *b ? *a < *b : std::less<const float*>()(a, b);
  };
  std::make_heap(maxima.begin(), maxima.end(), weaker);
  std::vector<cv::Point_<float>> corners;
  while (!maxima.empty() && corners.size() < maxCorners) {
    std::pop_heap(maxima.begin(), maxima.end(), weaker);
    const std::ptrdiff_t i = maxima.back() - strength[0];
    maxima.pop_back();
    const auto stride = static_cast<std::ptrdiff_t>(strength.step1());
    const cv::Point_<float> place(static_cast<float>(i % stride), static_cast<float>(i / stride));
    if (!isNearOneOf(corners, place)) {
      corners.push_back(place);
    }
  }
  return corners;
}

}  // namespace movra::vision::detail
