#include "vision/superresolution/CvReplacements.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "movra/Exception.h"
#include "vision/superresolution/detail/base/Mirror.h"
#include "vision/superresolution/detail/registration/ImageHalving.h"
#include "vision/superresolution/detail/registration/PatchKernels.h"
#include "vision/superresolution/detail/registration/PointTracking.h"

namespace movra::vision {

namespace {

void requireWindow(cv::Size window) {
  constexpr int most = 4096;
  if (std::min(window.width, window.height) < 3 || std::max(window.width, window.height) > most) {
    MOVRA_THROW("The tracker's window must be 3 x 3 to 4096 x 4096 pixels");
  }
}

// The part of a matrix inside its margins.
cv::Mat inside(const cv::Mat& padded, cv::Size margin) {
  return padded(cv::Rect(margin.width, margin.height, padded.cols - 2 * margin.width, padded.rows - 2 * margin.height));
}

// Whether a matrix is the inside of one that it alone refers to, with such margins.
bool isOwnInside(const cv::Mat& image, cv::Size size, int type, cv::Size margin) {
  if (image.u == nullptr || image.u->refcount != 1 || image.type() != type || image.size() != size) {
    return false;
  }
  cv::Size whole;
  cv::Point offset;
  image.locateROI(whole, offset);
  return offset == cv::Point(margin.width, margin.height) && whole == size + margin + margin;
}

void makeInside(cv::Mat& image, cv::Size size, int type, cv::Size margin) {
  if (!isOwnInside(image, size, type, margin)) {
    image = inside(cv::Mat(size + margin + margin, type), margin);
  }
}

// Writes `source` to `image`, which may be the same, and fills the margins around it.
void copyWithMargins(const cv::Mat& source, cv::Mat& image, cv::Size margin, int border) {
  if ((border & ~cv::BORDER_ISOLATED) == cv::BORDER_TRANSPARENT) {
    source.copyTo(image);
    return;
  }
  cv::Mat padded = image;
  padded.adjustROI(margin.height, margin.height, margin.width, margin.width);
  cv::copyMakeBorder(source, padded, margin.height, margin.height, margin.width, margin.width, border);
}

void fillMargins(cv::Mat& image, cv::Size margin, int border) {
  copyWithMargins(image, image, margin, border | cv::BORDER_ISOLATED);
}

// The derivatives of an image, which is continued at its borders as in a mirror.
void makeDerivatives(const cv::Mat& image, cv::Mat& derivatives) {
  for (int y = 0; y < image.rows; ++y) {
    detail::patchKernels().scharrRow(image.ptr(detail::mirrored(y - 1, image.rows)), image.ptr(y),
                                     image.ptr(detail::mirrored(y + 1, image.rows)), image.cols, image.channels(),
                                     derivatives.ptr<short>(y));
  }
}

std::vector<cv::Mat> pyramidOf(cv::InputArray images, cv::Size window, int maxLevel, bool withDerivatives) {
  std::vector<cv::Mat> pyramid;
  if (images.kind() == cv::_InputArray::STD_VECTOR_MAT) {
    images.getMatVector(pyramid);
  } else {
    CvReplacements::buildOpticalFlowPyramid(images, pyramid, window, maxLevel, withDerivatives);
  }
  return pyramid;
}

// A pyramid, with derivatives between its images or without.
struct Levels {
  explicit Levels(std::vector<cv::Mat> matrices) : pyramid(std::move(matrices)) {
    if (pyramid.empty()) {
      MOVRA_THROW("An image pyramid has no levels");
    }
    hasDerivatives =
        pyramid.size() % 2 == 0 && pyramid[1].depth() == CV_16S && pyramid[1].channels() == 2 * pyramid[0].channels();
  }

  int top() const { return static_cast<int>(hasDerivatives ? pyramid.size() / 2 : pyramid.size()) - 1; }
  const cv::Mat& image(int level) const {
    return pyramid[static_cast<std::size_t>(hasDerivatives ? 2 * level : level)];
  }
  cv::Mat derivatives(int level, cv::Size window) const {
    if (hasDerivatives) {
      return pyramid[static_cast<std::size_t>(2 * level + 1)];
    }
    cv::Mat result;
    makeInside(result, image(level).size(), CV_MAKETYPE(CV_16S, 2 * image(level).channels()), window);
    makeDerivatives(image(level), result);
    fillMargins(result, window, cv::BORDER_CONSTANT);
    return result;
  }

  std::vector<cv::Mat> pyramid;
  bool hasDerivatives;
};

}  // namespace

int CvReplacements::buildOpticalFlowPyramid(cv::InputArray img, cv::OutputArrayOfArrays pyramid, cv::Size winSize,
                                            int maxLevel, bool withDerivatives, int pyrBorder, int derivBorder,
                                            bool tryReuseInputImage) {
  const cv::Mat image = img.getMat();
  requireWindow(winSize);
  if (image.empty() || image.dims != 2 || image.depth() != CV_8U) {
    MOVRA_THROW("An image pyramid is made of an 8-bit image");
  }
  if (maxLevel < 0) {
    MOVRA_THROW("The highest level of an image pyramid must be 0 or more");
  }
  const int step = withDerivatives ? 2 : 1;
  std::vector<cv::Size> sizes{image.size()};
  while (static_cast<int>(sizes.size()) <= maxLevel) {
    const cv::Size half((sizes.back().width + 1) / 2, (sizes.back().height + 1) / 2);
    if (half.width <= winSize.width || half.height <= winSize.height) {
      break;
    }
    sizes.push_back(half);
  }
  const int count = static_cast<int>(sizes.size());
  pyramid.create(1, count * step, 0, -1, true);
  for (int level = 0; level < count; ++level) {
    const cv::Size size = sizes[static_cast<std::size_t>(level)];
    cv::Mat& current = pyramid.getMatRef(level * step);
    if (level == 0 && tryReuseInputImage && detail::hasMargins(image, winSize)) {
      current = image;
    } else {
      makeInside(current, size, image.type(), winSize);
      if (level == 0) {
        copyWithMargins(image, current, winSize, pyrBorder);
      } else {
        detail::halveImage(pyramid.getMatRef((level - 1) * step), current);
        fillMargins(current, winSize, pyrBorder);
      }
    }
    if (withDerivatives) {
      cv::Mat& derivatives = pyramid.getMatRef(level * step + 1);
      makeInside(derivatives, size, CV_MAKETYPE(CV_16S, 2 * image.channels()), winSize);
      makeDerivatives(current, derivatives);
      fillMargins(derivatives, winSize, derivBorder);
    }
  }
  return count - 1;
}

void CvReplacements::calcOpticalFlowPyrLK(cv::InputArray prevImg, cv::InputArray nextImg, cv::InputArray prevPts,
                                          cv::InputOutputArray nextPts, cv::OutputArray status, cv::OutputArray err,
                                          cv::Size winSize, int maxLevel, cv::TermCriteria criteria, int flags,
                                          double minEigThreshold) {
  requireWindow(winSize);
  if (maxLevel < 0) {
    MOVRA_THROW("The highest level of an image pyramid must be 0 or more");
  }
  cv::Mat points = prevPts.getMat();
  if (points.empty()) {
    nextPts.release();
    status.release();
    err.release();
    return;
  }
  const int count = points.checkVector(2, CV_32F, true);
  if (count < 0) {
    MOVRA_THROW("The points to track must be a vector of pairs of floats");
  }
  const bool hasStart = (flags & CvReplacements::useInitialFlow) != 0;
  if (!hasStart) {
    nextPts.create(points.size(), points.type(), -1, true);
  }
  cv::Mat found = nextPts.getMat();
  if (found.checkVector(2, CV_32F, true) != count) {
    MOVRA_THROW("There must be as many points where the search begins as points to track");
  }
  if (found.data == points.data) {
    points = points.clone();
  }
  const Levels from(pyramidOf(prevImg, winSize, maxLevel, true));
  const Levels to(pyramidOf(nextImg, winSize, maxLevel, false));
  const int top = std::min({maxLevel, from.top(), to.top()});

  status.create(count, 1, CV_8U, -1, true);
  cv::Mat isFound = status.getMat();
  isFound.setTo(1);
  cv::Mat errors;
  if (err.needed()) {
    err.create(count, 1, CV_32F, -1, true);
    errors = err.getMat();
    errors.setTo(0);
  }
  for (int level = top; level >= 0; --level) {
    LKTrackerInvoker(from.image(level), from.derivatives(level, winSize), to.image(level),
                     points.ptr<cv::Point_<float>>(), found.ptr<cv::Point_<float>>(), isFound.ptr(),
                     errors.empty() ? nullptr : errors.ptr<float>(), winSize, criteria, level, top, flags,
                     static_cast<float>(minEigThreshold))({0, count});
  }
}

LKTrackerInvoker::LKTrackerInvoker(const cv::Mat& prevImage, const cv::Mat& prevDerivatives, const cv::Mat& nextImage,
                                   const cv::Point_<float>* prevPoints, cv::Point_<float>* nextPoints,
                                   unsigned char* isFound, float* errors, cv::Size window, cv::TermCriteria ends,
                                   int thisLevel, int topLevel, int trackerFlags, float minEigenvalue)
    : prevImg(prevImage),
      prevDeriv(prevDerivatives),
      nextImg(nextImage),
      prevPts(prevPoints),
      nextPts(nextPoints),
      status(isFound),
      err(errors),
      winSize(window),
      criteria(ends),
      level(thisLevel),
      maxLevel(topLevel),
      flags(trackerFlags),
      minEigThreshold(minEigenvalue) {
  requireWindow(winSize);
  if (prevDeriv.empty() || nextImg.type() != prevImg.type() || nextImg.size() != prevImg.size()) {
    MOVRA_THROW("Both images must have the same size and type, and the first its derivatives");
  }
  const detail::TrackedLevel from(prevImg, prevDeriv, winSize);
  const detail::TrackedLevel to(nextImg, {}, winSize);
}

void LKTrackerInvoker::operator()(const cv::Range& range) const {
  const detail::TrackedLevel from(prevImg, prevDeriv, winSize);
  const detail::TrackedLevel to(nextImg, {}, winSize);
  const detail::SearchLimits limits(criteria, static_cast<double>(minEigThreshold));
  const bool wantsEigenvalues = (flags & CvReplacements::getMinEigenvalues) != 0;
  const float scale = std::ldexp(1.0f, -level);
  detail::ReferencePatch patch(winSize, from.channels);
  std::vector<detail::ReferencePatch::Search> search(1);
  for (int i = range.start; i < range.end; ++i) {
    const cv::Point_<float> point = prevPts[i] * scale;
    cv::Point_<float>& found = nextPts[i];
    if (level < maxLevel) {
      found *= 2.0f;
    } else {
      found = (flags & CvReplacements::useInitialFlow) != 0 ? found * scale : point;
    }
    const bool isRead = patch.read(from, point);
    if (wantsEigenvalues && err != nullptr) {
      err[i] = isRead ? patch.smallerEigenvalue() : 0.0f;
    }
    bool isFound = isRead && patch.canBeFound(limits);
    if (isFound) {
      search = {{&to, found, false}};
      patch.find(search, limits);
      found = search.front().point;
      isFound = search.front().isFound;
    }
    if (level > 0) {
      continue;
    }
    if (isFound && err != nullptr && !wantsEigenvalues) {
      isFound = patch.windowTouchesImage(to, found);
      err[i] = isFound ? patch.distance(to, found) : 0.0f;
    }
    if (!isFound) {
      status[i] = 0;
    }
  }
}

}  // namespace movra::vision
