#include "vision/superresolution/detail/registration/CornerTracking.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace {

constexpr int window = 21;
constexpr int levels = 3;

std::vector<cv::Mat> pyramidOfNoise(cv::RNG& random, cv::Size size) {
  cv::Mat noise(size, CV_8U);
  random.fill(noise, cv::RNG::UNIFORM, 0, 256);
  cv::GaussianBlur(noise, noise, {9, 9}, 0);
  cv::normalize(noise, noise, 0, 255, cv::NORM_MINMAX);
  std::vector<cv::Mat> pyramid;
  cv::buildOpticalFlowPyramid(noise, pyramid, {window, window}, levels, true, cv::BORDER_REFLECT_101,
                              cv::BORDER_CONSTANT, true);
  return pyramid;
}

}  // namespace

// Corners of noise are led astray, some of them out of the image by their last step.
TEST(CornerTracking, LosesTheCornersThatTheTrackerLosesWhenAskedForErrors) {
  const cv::TermCriteria criteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01);
  cv::RNG random(5);
  int tracked = 0, lostByTheirLastStep = 0;
  for (int trial = 0; trial < 200; ++trial) {
    const cv::Size size(random.uniform(24, 84), random.uniform(24, 84));
    const auto from = pyramidOfNoise(random, size), to = pyramidOfNoise(random, size);
    std::vector<cv::Point2f> corners, expected, unused;
    for (int y = 0; y < size.height; y += 5) {
      for (int x = 0; x < size.width; x += 5) {
        corners.emplace_back(x, y);
      }
    }
    std::vector<unsigned char> isTracked, withoutErrors;
    std::vector<float> errors;
    cv::calcOpticalFlowPyrLK(from, to, corners, expected, isTracked, errors, {window, window}, levels, criteria);
    cv::calcOpticalFlowPyrLK(from, to, corners, unused, withoutErrors, cv::noArray(), {window, window}, levels,
                             criteria);
    const auto tracks = movra::vision::detail::trackCorners(from, {&to}, corners, window, levels).front();
    EXPECT_EQ(tracks.positions, expected);
    EXPECT_EQ(tracks.isTracked, isTracked);
    for (std::size_t i = 0; i < corners.size(); ++i) {
      tracked += isTracked[i];
      lostByTheirLastStep += withoutErrors[i] - isTracked[i];
    }
  }
  EXPECT_GT(tracked, 1000);
  EXPECT_GT(lostByTheirLastStep, 0);
}
