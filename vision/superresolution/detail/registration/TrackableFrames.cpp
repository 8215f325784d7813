#include "vision/superresolution/detail/registration/TrackableFrames.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "vision/superresolution/detail/base/CallingThread.h"
#include "vision/superresolution/detail/registration/RegistrationKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int gaussRadius = 5;

}  // namespace

TrackableFrames::TrackableFrames(int width_, int height_, int capacity_)
    : width(width_),
      height(height_),
      capacity(capacity_),
      blurredFrames(static_cast<std::size_t>(capacity_)),
      pyramids(static_cast<std::size_t>(capacity_)),
      grey(height, width),
      displayMax(-FLT_MAX),
      displayMin(FLT_MAX) {}

void TrackableFrames::add(const float* frame) {
  if (capacity == 0 || grey.empty()) {
    return;  // nothing to register ever
  }
  if (held < capacity) {
    ++held;
  } else {
    std::rotate(blurredFrames.begin(), blurredFrames.begin() + 1, blurredFrames.end());
    std::rotate(pyramids.begin(), pyramids.begin() + 1, pyramids.end());
  }
  const auto newest = static_cast<std::size_t>(held - 1);
  try {
    prepare(frame, blurredFrames[newest], pyramids[newest]);
  } catch (...) {
    pyramids[newest].clear();
    throw;
  }
}

void TrackableFrames::prepare(const float* frame, cv::Mat_<float>& blurredFrame, std::vector<cv::Mat>& pyramid) {
  constexpr auto radius = static_cast<float>(gaussRadius);
  const double sigma = std::sqrt(3.0f * radius * radius / 25.0f);
  const cv::Mat source(height, width, CV_32F, const_cast<float*>(frame));  // only read
  cv::GaussianBlur(source, blurredFrame, {2 * gaussRadius + 1, 2 * gaussRadius + 1}, sigma, 0, cv::BORDER_REFLECT_101);

  double minimum = 0;
  double maximum = 0;
  cv::minMaxIdx(blurredFrame, &minimum, &maximum);
  widenDisplayWindow(static_cast<float>(minimum), static_cast<float>(maximum));
  registrationKernels().toGrey(blurredFrame.ptr<float>(), displayOffset, displayScale, width * height, grey.data);
  onCallingThread([&] {
    cv::buildOpticalFlowPyramid(grey, pyramid, {trackingWindow, trackingWindow}, highestLevel, true,
                                cv::BORDER_REFLECT_101, cv::BORDER_CONSTANT, true);
  });
}

// Frames whose range lies inside the window share its mapping to grey values; another one replaces it by its own range
// and a tenth on each side. An infinite range maps nothing, and as a window it would never be left again.
void TrackableFrames::widenDisplayWindow(float minimum, float maximum) {
  const bool hasRange = std::isfinite(maximum - minimum);
  if (hasRange && (minimum < displayMin || maximum > displayMax)) {
    const float margin = (maximum - minimum) * 0.1f;
    displayMin = minimum - margin;
    displayMax = maximum + margin;
    displayOffset = -displayMin;
    displayScale = 255.0f / (displayMax - displayMin);
  }
}

}  // namespace movra::vision::detail
