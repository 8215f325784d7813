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

  // Tracks the corners of one frame in others, as far as these are held; of the others there are no tracks.
  std::vector<CornerTracks> track(unsigned ref, const std::vector<unsigned>& searched) const;

  int width;
  int height;
  int numPixels;
  int numFrames;
  const char* className;
  TrackableFrames store;
  FineRegistration fine;
  CornerDetector detector;
  std::vector<cv::Point_<float>> corners;
  unsigned long gradientsNumber = 0;  // of the frame that the gradients belong to; 0: none
  unsigned long cornersNumber = 0;    // of the frame that the corners belong to; 0: unknown
  std::vector<cv::Point_<float>> lastShifts;
  std::vector<cv::Point_<float>> measuredShifts;
};

std::vector<CornerTracks> CornerRegistrationParts::track(unsigned ref, const std::vector<unsigned>& searched) const {
  std::vector<const std::vector<cv::Mat>*> pyramids;
  for (const unsigned i : searched) {
    if (!holds(i)) {
      break;
    }
    pyramids.push_back(&store.pyramid(static_cast<int>(i)));
  }
  std::vector<CornerTracks> tracks;
  if (!corners.empty() && holds(ref)) {
    tracks = trackCorners(store.pyramid(static_cast<int>(ref)), pyramids, corners, TrackableFrames::trackingWindow,
                          TrackableFrames::highestLevel);
  }
  tracks.resize(searched.size());
  return tracks;
}

namespace {

// The rounded mean of the displacements within 2 pixels of their median; false if there is none.
bool agreedShift(const std::vector<cv::Point_<float>>& corners, const CornerTracks& tracks, cv::Point_<int>& coarse) {
  std::vector<float> dx;
  std::vector<float> dy;
  for (std::size_t i = 0; i < tracks.isTracked.size(); ++i) {
    if (tracks.isTracked[i] != 0) {
      dx.push_back(tracks.positions[i].x - corners[i].x);
      dy.push_back(tracks.positions[i].y - corners[i].y);
    }
  }
  if (dx.empty()) {
    return false;
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
    return false;
  }
  const float share = 1.0f / static_cast<float>(inliers);
  coarse = {wholePixels(sumX * share), wholePixels(sumY * share)};
  return true;
}

}  // namespace

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
  const unsigned long number = parts->store.number(refIndex);
  if (parts->cornersNumber != number) {
    extractCornersRefImage(parts->store.blurred(refIndex));
    parts->cornersNumber = number;
  }
  // First the corners of all frames, then the fine steps: either finds its part of the reference in cache.
  const auto ref = static_cast<unsigned>(refIndex);
  std::vector<cv::Point_<int>> coarse(static_cast<std::size_t>(count));
  std::vector<cv::Point_<float>> measured(coarse.size());
  std::vector<unsigned> searched;
  for (unsigned i = 0; i < coarse.size(); ++i) {
    if (i != ref) {
      searched.push_back(i);
    }
  }
  const std::vector<detail::CornerTracks> tracks = parts->track(ref, searched);
  const auto isAgreed = [&](unsigned i) {
    return detail::agreedShift(parts->corners, tracks[i < ref ? i : i - 1], coarse[i]);
  };
  unsigned tracked = 0;  // frames before the first that cannot be tracked
  while (tracked < coarse.size() && (tracked == ref || isAgreed(tracked))) {
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
    const unsigned long number = parts->store.number(refIndex);
    if (parts->gradientsNumber != number) {
      parts->fine.setReference(parts->store.blurred(refIndex).template ptr<float>());
      parts->gradientsNumber = number;
    }
  }
}

template <class Mask>
void CornerRegistration<Mask>::extractCornersRefImage(cv::Mat_<float>& ref) {
  parts->cornersNumber = 0;
  parts->corners = parts->detector.find(ref);
}

template <class Mask>
int CornerRegistration<Mask>::registerWithCorners(unsigned ref, unsigned frame, cv::Point_<int>& coarse) {
  coarse = {0, 0};
  return detail::agreedShift(parts->corners, parts->track(ref, {frame}).front(), coarse) ? 0 : noTrack;
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
