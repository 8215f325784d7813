#include "vision/superresolution/detail/registration/TrackableFrames.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "vision/superresolution/CvReplacements.h"
#include "vision/superresolution/detail/registration/RegistrationKernels.h"

namespace movra::vision::detail {

TrackableFrames::TrackableFrames(int width_, int height_, int capacity_)
    : width(width_),
      height(height_),
      capacity(capacity_),
      blur(width_, height_),
      blurredFrames(static_cast<std::size_t>(capacity_)),
      pyramids(static_cast<std::size_t>(capacity_)),
      numbers(static_cast<std::size_t>(capacity_)),
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
    std::rotate(numbers.begin(), numbers.begin() + 1, numbers.end());
  }
  const auto newest = static_cast<std::size_t>(held - 1);
  numbers[newest] = ++taken;
  try {
    prepare(frame, blurredFrames[newest], pyramids[newest]);
  } catch (...) {
    pyramids[newest].clear();
    throw;
  }
}

void TrackableFrames::prepare(const float* frame, cv::Mat_<float>& blurredFrame, std::vector<cv::Mat>& pyramid) {
  blurredFrame.create(height, width);
  const ValueRange range = blur.apply(frame, blurredFrame.ptr<float>());
  widenDisplayWindow(range.lowest, range.highest);
  registrationKernels().toGrey(blurredFrame.ptr<float>(), displayOffset, displayScale, width * height, grey.data);
  CvReplacements::buildOpticalFlowPyramid(grey, pyramid, {trackingWindow, trackingWindow}, highestLevel);
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
