#include "tools/movra-sr/report/Quality.h"

#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

namespace movra::tool {

namespace {

double rangeOf(const cv::Mat_<float>& image) {
  double low = 0;
  double high = 0;
  cv::minMaxLoc(image, &low, &high);
  return high - low;
}

cv::Mat inDouble(const cv::Mat_<float>& image) {
  cv::Mat values;
  image.convertTo(values, CV_64F);
  return values;
}

}  // namespace

double peakSignalToNoise(const cv::Mat_<float>& image, const cv::Mat_<float>& truth) {
  const double squares = cv::norm(image, truth, cv::NORM_L2SQR);
  if (squares == 0) {
    return std::numeric_limits<double>::infinity();
  }
  const double meanSquare = squares / static_cast<double>(truth.total());
  const double peak = rangeOf(truth);
  return 10 * std::log10(peak * peak / meanSquare);
}

double structuralSimilarity(const cv::Mat_<float>& image, const cv::Mat_<float>& truth) {
  constexpr int window = 11;
  const auto localMean = [](const cv::Mat& values) {
    cv::Mat mean;
    cv::GaussianBlur(values, mean, {window, window}, 1.5);
    constexpr int half = window / 2;
    return cv::Mat(mean(cv::Rect(half, half, mean.cols - 2 * half, mean.rows - 2 * half)));
  };
  // Around the truth's mean: subtracting squares of large numbers would cost digits.
  const double centre = cv::mean(truth)[0];
  const cv::Mat a = inDouble(image) - centre;
  const cv::Mat b = inDouble(truth) - centre;
  const cv::Mat meanA = localMean(a);
  const cv::Mat meanB = localMean(b);
  const cv::Mat varianceA = localMean(a.mul(a)) - meanA.mul(meanA);
  const cv::Mat varianceB = localMean(b.mul(b)) - meanB.mul(meanB);
  const cv::Mat covariance = localMean(a.mul(b)) - meanA.mul(meanB);

  // The luminance term compares the means as they stand.
  const cv::Mat levelA = meanA + centre;
  const cv::Mat levelB = meanB + centre;
  const double range = rangeOf(truth);
  const double c1 = std::pow(0.01 * range, 2);
  const double c2 = std::pow(0.03 * range, 2);
  const cv::Mat above = (2 * levelA.mul(levelB) + c1).mul(2 * covariance + c2);
  const cv::Mat below = (levelA.mul(levelA) + levelB.mul(levelB) + c1).mul(varianceA + varianceB + c2);
  return cv::mean(above / below)[0];
}

cv::Mat_<float> enlargeBicubically(const cv::Mat_<float>& frame) {
  cv::Mat_<float> result;
  cv::resize(frame, result, {2 * frame.cols, 2 * frame.rows}, 0, 0, cv::INTER_CUBIC);
  return result;
}

}  // namespace movra::tool
