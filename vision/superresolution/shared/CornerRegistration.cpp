#include "vision/superresolution/shared/CornerRegistration.h"

#include <algorithm>
#include <cmath>

#include "movra/Exception.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/registration/CornerDetection.h"
#include "vision/superresolution/detail/registration/CornerTracking.h"
#include "vision/superresolution/detail/registration/FineRegistration.h"
#include "vision/superresolution/detail/registration/TrackableFrames.h"
#include "vision/superresolution/detail/registration/WholePixelMove.h"

namespace movra::vision {

namespace {

// Line number in the location text of "Too large displacement". A fixed number that callers know, not this file's line.
constexpr int sourceLine = 174;

// Upper median: element size / 2 of the sorted values.
float upperMedian(std::vector<float> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

namespace detail {

// What a corner registration consists of.
struct CornerRegistrationParts {
  CornerRegistrationParts(int width_, int height_, int numFrames_, const char* className_)
      : width(width_),
        height(height_),
        numPixels(checkedArea(height_, width_)),
        numFrames(checkedSize(numFrames_)),
        className(className_),
        store(width, height, numFrames),
        fine(width, height) {}

  bool holds(unsigned frame) const {
    return frame < static_cast<unsigned>(store.count()) && store.isTrackable(static_cast<int>(frame));
  }

  int width;
  int height;
  int numPixels;
  int numFrames;
  const char* className;
  TrackableFrames store;
  FineRegistration fine;
  std::vector<cv::Point_<float>> corners;
  std::vector<cv::Point_<float>> lastShifts;
  std::vector<cv::Point_<float>> measuredShifts;
};

}  // namespace detail

template <class Mask>
CornerRegistration<Mask>::CornerRegistration(int width, int height, int numFrames, const char* className)
    : parts(std::make_unique<detail::CornerRegistrationParts>(width, height, numFrames, className)) {}

template <class Mask>
CornerRegistration<Mask>::~CornerRegistration() = default;

template <class Mask>
float CornerRegistration<Mask>::getRegError() const {
  return parts->fine.regError;
}

template <class Mask>
void CornerRegistration<Mask>::setRegError(float maximumError) {
  parts->fine.regError = maximumError;
}

template <class Mask>
void CornerRegistration<Mask>::prepareFrame(float* frame) {
  if (frame == nullptr && parts->numPixels > 0) {
    MOVRA_THROW("The frame's data pointer is null");
  }
  parts->store.add(frame);
}

template <class Mask>
void CornerRegistration<Mask>::clearFrames() {
  parts->store.clear();
}

template <class Mask>
int CornerRegistration<Mask>::doRegistration(int count, int refIndex, float** sourceFrames, cv::Point_<float>* shifts,
                                             Mask** masks, float** shiftedFrames) {
  const int status = registerFrames(count, refIndex, sourceFrames, shifts, masks);
  if (status != 0) {
    return status;
  }
  if (!detail::splitShifts(count, parts->width, parts->height, sourceFrames, shifts, shiftedFrames,
                           parts->lastShifts)) {
    detail::throwTooLargeDisplacement(parts->className, sourceLine);
  }
  return 0;
}

template <class Mask>
int CornerRegistration<Mask>::registerFrames(int count, int refIndex, float** /*frames*/, cv::Point_<float>* shifts,
                                             Mask** masks) {
  if (count < 1 || count > parts->store.count() || refIndex < 0 || refIndex >= count) {
    return noTrack;  // no frame to read
  }
  initialize(masks, refIndex);
  extractCornersRefImage(parts->store.blurred(refIndex));
  // First the corners of all frames, then the fine steps: either finds its part of the reference in cache.
  const auto ref = static_cast<unsigned>(refIndex);
  std::vector<cv::Point_<int>> coarse(static_cast<std::size_t>(count));
  std::vector<cv::Point_<float>> measured(coarse.size());
  unsigned tracked = 0;  // frames before the first that cannot be tracked
  while (tracked < coarse.size() && (tracked == ref || registerWithCorners(ref, tracked, coarse[tracked]) == 0)) {
    ++tracked;
  }
  for (unsigned i = 0; i < tracked; ++i) {
    if (i != ref) {
      measured[i] = opticalFlow(ref, i, coarse[i], masks[i]);
    }
  }
  if (tracked < coarse.size()) {
    if (ref < tracked) {
      shifts[ref] = {0, 0};
    }
    return noTrack;
  }
  parts->measuredShifts = std::move(measured);
  std::copy(parts->measuredShifts.begin(), parts->measuredShifts.end(), shifts);
  return 0;
}

template <class Mask>
void CornerRegistration<Mask>::initialize(Mask** masks, int refIndex) {
  for (int i = 0; i < parts->numFrames; ++i) {
    std::fill_n(masks[i], parts->numPixels, static_cast<Mask>(i == refIndex ? 1 : 0));
  }
  if (refIndex >= 0 && parts->holds(static_cast<unsigned>(refIndex))) {
    parts->fine.setReference(parts->store.blurred(refIndex).template ptr<float>());
  }
}

template <class Mask>
void CornerRegistration<Mask>::extractCornersRefImage(cv::Mat_<float>& ref) {
  parts->corners = detail::findCorners(ref);
}

template <class Mask>
int CornerRegistration<Mask>::registerWithCorners(unsigned ref, unsigned frame, cv::Point_<int>& coarse) {
  coarse = {0, 0};
  const std::vector<cv::Point_<float>>& corners = parts->corners;
  if (corners.empty() || !parts->holds(ref) || !parts->holds(frame)) {
    return noTrack;
  }
  const detail::TrackableFrames& store = parts->store;
  const detail::CornerTracks tracks =
      detail::trackCorners(store.pyramid(static_cast<int>(ref)), store.pyramid(static_cast<int>(frame)), corners,
                           detail::TrackableFrames::trackingWindow, detail::TrackableFrames::highestLevel);

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
  if (!parts->holds(ref) || !parts->holds(frame)) {
    return {static_cast<float>(coarse.x), static_cast<float>(coarse.y)};
  }
  return parts->fine.step(parts->store.blurred(static_cast<int>(ref)).template ptr<float>(),
                          parts->store.blurred(static_cast<int>(frame)).template ptr<float>(), coarse, mask);
}

template <class Mask>
void CornerRegistration<Mask>::shiftFrame(float* src, cv::Point_<float>& shift, float* dst) {
  detail::moveByWholePixels(src, parts->width, parts->height, shift, dst);
}

template <class Mask>
const std::vector<cv::Point_<float>>& CornerRegistration<Mask>::getCompleteShifts() const {
  return parts->lastShifts;
}

template class CornerRegistration<char>;
template class CornerRegistration<float>;

}  // namespace movra::vision
