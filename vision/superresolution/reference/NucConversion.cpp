#include "vision/superresolution/reference/NucConversion.h"

#include <cmath>
#include <limits>

namespace movra::vision::detail {

namespace {

constexpr float limit = 1000.0f;

bool isWithin(float value) {
  return value > -limit && value < limit;
}

float meanOfNeighbours(const cv::Mat_<float>& image, int y, int x) {
  constexpr int offsets[4][2] = {{0, -1}, {0, 1}, {-1, 0}, {1, 0}};  // left, right, upper, lower
  float sum = 0;
  int count = 0;
  for (const auto& [dy, dx] : offsets) {
    const bool exists = y + dy >= 0 && y + dy < image.rows && x + dx >= 0 && x + dx < image.cols;
    if (exists && isWithin(image(y + dy, x + dx))) {
      sum += image(y + dy, x + dx);
      ++count;
    }
  }
  return count > 0 ? sum / static_cast<float>(count) : std::numeric_limits<float>::quiet_NaN();
}

}  // namespace

void twoPointCalibration(const cv::Mat_<short>& nucLow, const cv::Mat_<float>& radLow, const cv::Mat_<short>& nucHigh,
                         const cv::Mat_<float>& radHigh, cv::Mat_<float>& slope, cv::Mat_<float>& offset) {
  slope.create(nucLow.size());
  offset.create(nucLow.size());
  for (int y = 0; y < nucLow.rows; ++y) {
    for (int x = 0; x < nucLow.cols; ++x) {
      const int counts = nucHigh(y, x) - nucLow(y, x);
      if (counts == 0) {
        slope(y, x) = offset(y, x) = std::numeric_limits<float>::quiet_NaN();
        continue;
      }
      slope(y, x) = (radHigh(y, x) - radLow(y, x)) / static_cast<float>(counts);
      offset(y, x) = radLow(y, x) - static_cast<float>(nucLow(y, x)) * slope(y, x);
    }
  }
}

void repairOutliers(cv::Mat_<float>& image) {
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      if (image(y, x) <= -limit || image(y, x) >= limit) {
        image(y, x) = meanOfNeighbours(image, y, x);
      }
    }
  }
}

}  // namespace movra::vision::detail
