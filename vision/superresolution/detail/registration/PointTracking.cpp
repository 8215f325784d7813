#include "vision/superresolution/detail/registration/PointTracking.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "movra/Exception.h"

namespace movra::vision::detail {

namespace {

constexpr float sumScale =
    1.0f / (1 << 20);  // of sums of gradients, which are 32 times the grey levels per pixel, squared

// The window around a position: its first pixel, and the weights of the pixels that its elements lie between.
struct WindowPlace {
  explicit WindowPlace(cv::Point_<float> corner) {
    const float left = std::floor(corner.x);
    const float top = std::floor(corner.y);
    x = static_cast<int>(left);
    y = static_cast<int>(top);
    constexpr float unit = 1 << 14;
    const float right = corner.x - left;
    const float down = corner.y - top;
    const auto weight = [](float share) { return static_cast<short>(std::lrint(share * unit)); };
    weights[0] = weight((1.0f - right) * (1.0f - down));
    weights[1] = weight(right * (1.0f - down));
    weights[2] = weight((1.0f - right) * down);
    weights[3] = static_cast<short>((1 << 14) - weights[0] - weights[1] - weights[2]);
  }

  const unsigned char* in(const TrackedLevel& level) const {
    return level.grey + y * level.greyStride + std::ptrdiff_t{x} * level.channels;
  }

  ImagePlace placeIn(const TrackedLevel& level) const {
    return {in(level), level.greyStride, {weights[0], weights[1], weights[2], weights[3]}};
  }

  int x;
  int y;
  BilinearWeights weights;
};

cv::Point_<float> half(cv::Size window) {
  return {static_cast<float>(window.width - 1) * 0.5f, static_cast<float>(window.height - 1) * 0.5f};
}

// True when the window from `corner` on can be read. A position that is not a number cannot.
bool isInside(cv::Point_<float> corner, cv::Size window, cv::Size image) {
  return std::floor(corner.x) >= static_cast<float>(-window.width) && corner.x < static_cast<float>(image.width) &&
         std::floor(corner.y) >= static_cast<float>(-window.height) && corner.y < static_cast<float>(image.height);
}

}  // namespace

bool hasMargins(const cv::Mat& image, cv::Size margin) {
  cv::Size whole;
  cv::Point offset;
  image.locateROI(whole, offset);
  return offset.x >= margin.width && offset.y >= margin.height && whole.width - offset.x - image.cols >= margin.width &&
         whole.height - offset.y - image.rows >= margin.height;
}

TrackedLevel::TrackedLevel(const cv::Mat& image, const cv::Mat& derivativeImage, cv::Size window)
    : grey(image.data),
      greyStride(static_cast<std::ptrdiff_t>(image.step)),
      derivatives(reinterpret_cast<const short*>(derivativeImage.data)),
      derivativeStride(static_cast<std::ptrdiff_t>(derivativeImage.step / sizeof(short))),
      size(image.size()),
      channels(image.channels()) {
  if (image.empty() || image.depth() != CV_8U || !hasMargins(image, window)) {
    MOVRA_THROW("A level of an image pyramid must be an 8-bit image with margins of the window's size");
  }
  if (!derivativeImage.empty() && (derivativeImage.type() != CV_MAKETYPE(CV_16S, 2 * channels) ||
                                   derivativeImage.size() != size || !hasMargins(derivativeImage, window))) {
    MOVRA_THROW("The derivatives of a pyramid's level must be 16-bit images with margins of the window's size");
  }
}

SearchLimits::SearchLimits(const cv::TermCriteria& criteria, double leastEigenvalue)
    : steps((criteria.type & cv::TermCriteria::COUNT) != 0 ? std::clamp(criteria.maxCount, 0, 100) : 30),
      minEigenvalue(static_cast<float>(leastEigenvalue)) {
  const double step = (criteria.type & cv::TermCriteria::EPS) != 0 ? std::clamp(criteria.epsilon, 0.0, 10.0) : 0.01;
  squaredStep = step * step;
}

ReferencePatch::ReferencePatch(cv::Size window_, int channels)
    : window(window_),
      shape{window.width * channels, window.height, channels},
      blocks(static_cast<std::size_t>(shape.blocksPerRow()) * static_cast<std::size_t>(shape.height)) {}

bool ReferencePatch::read(const TrackedLevel& level, cv::Point_<float> point) {
  const cv::Point_<float> corner = point - half(window);
  if (!isInside(corner, window, level.size)) {
    return false;
  }
  const WindowPlace place(corner);
  const std::ptrdiff_t derivative = place.y * level.derivativeStride + std::ptrdiff_t{place.x} * 2 * level.channels;
  float gradientSums[3];
  patchKernels().readPatch(place.in(level), level.greyStride, level.derivatives + derivative, level.derivativeStride,
                           shape, place.weights, blocks.data(), gradientSums);
  xx = gradientSums[0] * sumScale;
  xy = gradientSums[1] * sumScale;
  yy = gradientSums[2] * sumScale;
  determinant = xx * yy - xy * xy;
  eigenvalue = (yy + xx - std::sqrt((xx - yy) * (xx - yy) + 4.0f * xy * xy)) /
               static_cast<float>(2 * window.width * window.height);
  return true;
}

bool ReferencePatch::canBeFound(const SearchLimits& limits) const {
  return !(eigenvalue < limits.minEigenvalue) && !(determinant < FLT_EPSILON);
}

template <class Ends>
void ReferencePatch::removeIf(Ends ends) {
  walks.erase(std::remove_if(walks.begin(), walks.end(), ends), walks.end());
}

void ReferencePatch::find(std::vector<Search>& searches, const SearchLimits& limits) {
  walks.clear();
  for (Search& search : searches) {
    search.isFound = true;
    if (limits.steps > 0) {
      walks.push_back({&search, search.point - half(window), {}, {}, {}, 0});
    }
  }
  while (!walks.empty()) {
    removeIf([&](const Walk& walk) {
      walk.search->isFound = isInside(walk.corner, window, walk.search->level->size);
      return !walk.search->isFound;
    });
    places.clear();
    sums.clear();
    for (Walk& walk : walks) {
      walk.place = WindowPlace(walk.corner).placeIn(*walk.search->level);
      places.push_back(&walk.place);
      sums.push_back(walk.sums);
    }
    patchKernels().mismatch(places.data(), static_cast<int>(walks.size()), shape, blocks.data(), sums.data());
    removeIf([&](Walk& walk) { return makeStep(limits, walk); });
  }
}

// True if it was the last step.
bool ReferencePatch::makeStep(const SearchLimits& limits, Walk& walk) const {
  const float inverse = 1.0f / determinant;
  const float x = walk.sums[0] * sumScale;
  const float y = walk.sums[1] * sumScale;
  const cv::Point_<float> step((xy * y - yy * x) * inverse, (xy * x - xx * y) * inverse);
  walk.corner += step;
  walk.search->point = walk.corner + half(window);
  ++walk.steps;
  if (step.ddot(step) <= limits.squaredStep) {
    return true;
  }
  // A search that goes to and fro ends in the middle.
  if (walk.steps > 1 && std::abs(step.x + walk.before.x) < 0.01f && std::abs(step.y + walk.before.y) < 0.01f) {
    walk.search->point -= step * 0.5f;
    return true;
  }
  walk.before = step;
  return walk.steps == limits.steps;
}

bool ReferencePatch::windowTouchesImage(const TrackedLevel& level, cv::Point_<float> point) const {
  return isInside(point - half(window), window, level.size);
}

float ReferencePatch::distance(const TrackedLevel& level, cv::Point_<float> point) const {
  const WindowPlace place(point - half(window));
  const long sum = patchKernels().distance(place.placeIn(level), shape, blocks.data());
  return static_cast<float>(sum) / (32.0f * static_cast<float>(shape.width) * static_cast<float>(shape.height));
}

}  // namespace movra::vision::detail
