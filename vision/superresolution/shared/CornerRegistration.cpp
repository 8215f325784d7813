#include "vision/superresolution/shared/CornerRegistration.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "movra/Exception.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/registration/CornerDetection.h"
#include "vision/superresolution/detail/registration/CornerTracking.h"
#include "vision/superresolution/detail/registration/FineRegistration.h"
#include "vision/superresolution/detail/registration/RegistrationKernels.h"
#include "vision/superresolution/detail/registration/WholePixelMove.h"

namespace movra::vision {

namespace {

constexpr int pyramidLevels = 3;
constexpr int sourceLine = 174;  // of "Too large displacement"

// The element that half of the others precede; the upper one of an even number.
float upperMedian(std::vector<float> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

template <class Mask>
CornerRegistration<Mask>::CornerRegistration(int width_, int height_, int numFrames_, const char* path)
    : width(width_),
      height(height_),
      numPixels(detail::checkedArea(height_, width_)),
      numFrames(detail::checkedSize(numFrames_)),
      frameCount(0),
      gaussRadius(5),
      lkWindow(21),
      frames(static_cast<std::size_t>(numFrames)),
      pyramids(static_cast<std::size_t>(numFrames)),
      grey(height, width),
      fine(std::make_unique<detail::FineRegistration>(width, height)),
      displayMax(-FLT_MAX),
      displayMin(FLT_MAX),
      displayScale(1),
      displayOffset(0),
      sourcePath(path) {}

template <class Mask>
CornerRegistration<Mask>::~CornerRegistration() = default;

template <class Mask>
float CornerRegistration<Mask>::getRegError() const {
  return fine->regError;
}

template <class Mask>
void CornerRegistration<Mask>::setRegError(float maximumError) {
  fine->regError = maximumError;
}

template <class Mask>
void CornerRegistration<Mask>::prepareFrame(float* frame) {
  if (numFrames == 0 || numPixels == 0) {
    return;  // nothing to register ever
  }
  if (frame == nullptr) {
    MOVRA_THROW("The frame's data pointer is null");
  }
  if (frameCount < numFrames) {
    ++frameCount;
  } else {
    std::rotate(frames.begin(), frames.begin() + 1, frames.end());
    std::rotate(pyramids.begin(), pyramids.begin() + 1, pyramids.end());
  }
  cv::Mat_<float>& blurred = frames[static_cast<std::size_t>(frameCount - 1)];
  const auto radius = static_cast<float>(gaussRadius);
  const double sigma = std::sqrt(3.0f * radius * radius / 25.0f);
  cv::GaussianBlur(cv::Mat_<float>(height, width, frame), blurred, {2 * gaussRadius + 1, 2 * gaussRadius + 1}, sigma, 0,
                   cv::BORDER_REFLECT_101);

  double minimum = 0;
  double maximum = 0;
  cv::minMaxIdx(blurred, &minimum, &maximum);
  widenDisplayWindow(static_cast<float>(minimum), static_cast<float>(maximum));
  detail::registrationKernels().toGrey(blurred.template ptr<float>(), displayOffset, displayScale, numPixels,
                                       grey.data);
  cv::buildOpticalFlowPyramid(grey, pyramids[static_cast<std::size_t>(frameCount - 1)], {lkWindow, lkWindow},
                              pyramidLevels, true, cv::BORDER_REFLECT_101, cv::BORDER_CONSTANT, true);
}

// Frames whose range lies inside the window share its mapping to grey values; another one replaces it by its own range
// and a tenth on each side. An infinite range maps nothing, and as a window it would never be left again.
template <class Mask>
void CornerRegistration<Mask>::widenDisplayWindow(float minimum, float maximum) {
  const bool hasRange = std::isfinite(maximum - minimum);
  if (hasRange && (minimum < displayMin || maximum > displayMax)) {
    const float margin = (maximum - minimum) * 0.1f;
    displayMin = minimum - margin;
    displayMax = maximum + margin;
    displayOffset = -displayMin;
    displayScale = 255.0f / (displayMax - displayMin);
  }
}

template <class Mask>
void CornerRegistration<Mask>::clearFrames() {
  frameCount = 0;
  lastShifts.clear();
}

template <class Mask>
int CornerRegistration<Mask>::doRegistration(int count, int refIndex, float** sourceFrames, cv::Point_<float>* shifts,
                                             Mask** masks, float** shiftedFrames) {
  const int status = registerFrames(count, refIndex, sourceFrames, shifts, masks);
  if (status != 0) {
    return status;
  }
  detail::splitShifts(count, width, height, sourceFrames, shifts, shiftedFrames, lastShifts, sourcePath, sourceLine);
  return 0;
}

template <class Mask>
int CornerRegistration<Mask>::registerFrames(int count, int refIndex, float** /*frames*/, cv::Point_<float>* shifts,
                                             Mask** masks) {
  if (count < 1 || count > frameCount || refIndex < 0 || refIndex >= count) {
    return noTrack;  // no frame to read
  }
  initialize(masks, refIndex);
  extractCornersRefImage(frames[static_cast<std::size_t>(refIndex)]);
  if (corners.empty()) {
    return noTrack;
  }
  // First the corners of all frames, then the fine steps: either finds its part of the reference in cache. When a frame
  // cannot be tracked, the masks of those before it are still made.
  const auto ref = static_cast<unsigned>(refIndex);
  std::vector<cv::Point_<int>> coarse(static_cast<std::size_t>(count));
  int status = 0;
  unsigned tracked = 0;
  for (; tracked < coarse.size(); ++tracked) {
    status = tracked == ref ? 0 : registerWithCorners(ref, tracked, coarse[tracked]);
    if (status != 0) {
      break;
    }
  }
  std::vector<cv::Point_<float>> measured(coarse.size());
  for (unsigned i = 0; i < tracked; ++i) {
    if (i != ref) {
      measured[i] = opticalFlow(ref, i, coarse[i], masks[i]);
    }
  }
  if (status != 0) {
    return status;
  }
  measuredShifts = std::move(measured);
  std::copy(measuredShifts.begin(), measuredShifts.end(), shifts);
  return 0;
}

template <class Mask>
void CornerRegistration<Mask>::initialize(Mask** masks, int refIndex) {
  for (int i = 0; i < numFrames; ++i) {
    std::fill_n(masks[i], numPixels, static_cast<Mask>(i == refIndex ? 1 : 0));
  }
  if (refIndex >= 0 && refIndex < frameCount) {
    fine->setReference(frames[static_cast<std::size_t>(refIndex)].template ptr<float>());
  }
}

template <class Mask>
void CornerRegistration<Mask>::extractCornersRefImage(cv::Mat_<float>& ref) {
  corners = detail::findCorners(ref);
}

template <class Mask>
int CornerRegistration<Mask>::registerWithCorners(unsigned ref, unsigned frame, cv::Point_<int>& coarse) {
  coarse = {0, 0};
  if (corners.empty() || std::max(ref, frame) >= static_cast<unsigned>(frameCount)) {
    return noTrack;
  }
  const detail::CornerTracks tracks =
      detail::trackCorners(pyramids[ref], pyramids[frame], corners, lkWindow, pyramidLevels);

  std::vector<float> dx;
  std::vector<float> dy;
  for (std::size_t i = 0; i < corners.size(); ++i) {
    if (tracks.isTracked[i] != 0) {
      dx.push_back(tracks.positions[i].x - corners[i].x);
      dy.push_back(tracks.positions[i].y - corners[i].y);
    }
  }
  if (dx.empty()) {
    return noTrack;
  }

  const float medX = upperMedian(dx);
  const float medY = upperMedian(dy);
  float sumX = 0;
  float sumY = 0;
  int inliers = 0;
  for (std::size_t i = 0; i < dx.size(); ++i) {
    if (std::fabs(dx[i] - medX) < 2.0f && std::fabs(dy[i] - medY) < 2.0f) {
      sumX += dx[i];
      sumY += dy[i];
      ++inliers;
    }
  }
  if (inliers == 0) {
    return noTrack;
  }
  const float share = 1.0f / static_cast<float>(inliers);
  coarse = {detail::wholePixels(sumX * share), detail::wholePixels(sumY * share)};
  return 0;
}

template <class Mask>
cv::Point_<float> CornerRegistration<Mask>::opticalFlow(unsigned ref, unsigned frame, cv::Point_<int> coarse,
                                                        Mask* mask) {
  if (std::max(ref, frame) >= static_cast<unsigned>(frameCount)) {
    return {static_cast<float>(coarse.x), static_cast<float>(coarse.y)};
  }
  return fine->step(frames[ref].template ptr<float>(), frames[frame].template ptr<float>(), coarse, mask);
}

template <class Mask>
void CornerRegistration<Mask>::shiftFrame(float* src, cv::Point_<float>& shift, float* dst) {
  detail::moveByWholePixels(src, width, height, shift, dst);
}

template class CornerRegistration<char>;
template class CornerRegistration<float>;

}  // namespace movra::vision
