#include "vision/superresolution/detail/badpixels/BadPixelDrawing.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <string>

#include "movra/Exception.h"
#include "vision/superresolution/detail/badpixels/BadPixelList.h"

namespace movra::vision::detail {

namespace {

cv::Scalar_<double> drawColour(cv::RNG& random) {
  cv::Scalar_<double> colour;
  for (int channel = 0; channel < 3; ++channel) {
    colour[channel] = static_cast<unsigned char>(random);
  }
  return colour;
}

}  // namespace

void drawBadPixels(const cv::Mat& list, cv::Mat_<cv::Vec<unsigned char, 3>>& img, const cv::Scalar_<double>& colour,
                   unsigned int size, bool randomColour) {
  if (!isBadPixelList(list)) {
    MOVRA_THROW("ERROR: \t >>Unspported BadPixel format!!");
  }
  // A larger square lies outside the image with all its sides, as one of this size does.
  const int side = static_cast<int>(std::min(size, 4U * largestPosition));
  for (int i = 0; i < list.rows; ++i) {
    const int x = list.at<unsigned short>(i, 0);
    const int y = list.at<unsigned short>(i, 1);
    if (x >= img.cols || y >= img.rows) {
      MOVRA_THROW("ERROR: \t >>BadPixel [" + std::to_string(y) + "," + std::to_string(x) + "] out of bounds ");
    }
    const cv::Rect_<int> square(x - side / 2, y - side / 2, side, side);
    cv::rectangle(img, square, randomColour ? drawColour(cv::theRNG()) : colour, 1, cv::LINE_8);
  }
}

}  // namespace movra::vision::detail
