#include "tests/plain/PlainRegistration.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace movra::test {

namespace {

constexpr int lanes = 16;

int roundHalfUp(float value) {
  return static_cast<int>(std::floor(static_cast<double>(value) + 0.5));
}

float upperMedian(std::vector<float> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

PlainFineStep::PlainFineStep(int width_, int height_)
    : width(width_),
      height(height_),
      boxFilter(width, height, 1, 1, 1.0f),
      gradX(static_cast<std::size_t>(width * height)),
      gradY(gradX.size()),
      residual(gradX.size()),
      residualBlurred(gradX.size()) {}

// Adds the terms of a rectangle to partial sums, by column.
template <class Term>
void PlainFineStep::addOver(const cv::Rect& area, double* sums, Term term) const {
  for (int y = area.y; y < area.y + area.height; ++y) {
    for (int x = 0; x < area.width; ++x) {
      const float product = term(static_cast<std::size_t>(y * width + area.x + x));
      sums[x % lanes] += static_cast<double>(product);
    }
  }
}

template <class Term>
double PlainFineStep::sumOver(std::initializer_list<cv::Rect> areas, Term term) const {
  double sums[lanes] = {};
  for (const cv::Rect& area : areas) {
    addOver(area, sums, term);
  }
  for (int half = lanes / 2; half > 0; half /= 2) {
    for (int l = 0; l < half; ++l) {
      sums[l] += sums[l + half];
    }
  }
  return sums[0];
}

void PlainFineStep::setReference(const float* image) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const auto i = static_cast<std::size_t>(y * width + x);
      const std::size_t left = x > 0 ? i - 1 : i, right = x < width - 1 ? i + 1 : i;
      const std::size_t up = y > 0 ? i - static_cast<std::size_t>(width) : i;
      const std::size_t down = y < height - 1 ? i + static_cast<std::size_t>(width) : i;
      gradX[i] = (right - left == 2 ? 0.5f : 1.0f) * (image[right] - image[left]);
      gradY[i] = (down - up == 2 * static_cast<std::size_t>(width) ? 0.5f : 1.0f) * (image[down] - image[up]);
    }
  }
  const cv::Rect all(0, 0, width, height);
  sumXX = static_cast<float>(sumOver({all}, [&](std::size_t i) { return gradX[i] * gradX[i]; }));
  sumXY = static_cast<float>(sumOver({all}, [&](std::size_t i) { return gradX[i] * gradY[i]; }));
  sumYY = static_cast<float>(sumOver({all}, [&](std::size_t i) { return gradY[i] * gradY[i]; }));
}

Shift PlainFineStep::step(const float* reference, const float* frame, cv::Point_<int> coarse, char* mask) {
  const int sx = coarse.x, sy = coarse.y;
  const cv::Rect overlap(std::max(0, -sx), std::max(0, -sy), width - std::abs(sx), height - std::abs(sy));
  const cv::Rect rows(0, sy >= 0 ? height - sy : 0, width, std::abs(sy));
  const cv::Rect columns(sx >= 0 ? width - sx : 0, overlap.y, std::abs(sx), overlap.height);
  for (const cv::Rect& band : {rows, columns}) {
    for (int y = band.y; y < band.y + band.height; ++y) {
      std::fill_n(residual.begin() + y * width + band.x, band.width, regError);
    }
  }
  const auto inside = [&](float whole, const Image& first, const Image& second) {
    return static_cast<double>(whole) - sumOver({rows, columns}, [&](std::size_t i) { return first[i] * second[i]; });
  };
  const double a = inside(sumXX, gradX, gradX), b = inside(sumXY, gradX, gradY), c = inside(sumYY, gradY, gradY);

  const std::ptrdiff_t partner = static_cast<std::ptrdiff_t>(sy) * width + sx;
  const auto difference = [&](std::size_t i) { return frame[static_cast<std::ptrdiff_t>(i) + partner] - reference[i]; };
  const double e1 = sumOver({overlap}, [&](std::size_t i) { return gradX[i] * difference(i); });
  const double e2 = sumOver({overlap}, [&](std::size_t i) { return gradY[i] * difference(i); });
  const double det = a * c - b * b;
  const auto dx = static_cast<float>((b * e2 - c * e1) / det);
  const auto dy = static_cast<float>((b * e1 - a * e2) / det);
  const auto k = static_cast<float>(1.0 / (a + c));
  for (int y = overlap.y; y < overlap.y + overlap.height; ++y) {
    for (int x = overlap.x; x < overlap.x + overlap.width; ++x) {
      const auto i = static_cast<std::size_t>(y * width + x);
      const float rest = dx * gradX[i] + dy * gradY[i] + difference(i);
      residual[i] = rest * rest * k;
    }
  }
  boxFilter.sameConvOnes(residual.data(), blurRadius, residualBlurred.data());

  const Shift shift(static_cast<float>(sx) + dx, static_cast<float>(sy) + dy);
  const int ix = roundHalfUp(shift.x), iy = roundHalfUp(shift.y);
  for (int y = std::max(0, -iy); y < std::min(height, height - iy); ++y) {
    for (int x = std::max(0, -ix); x < std::min(width, width - ix); ++x) {
      const auto i = static_cast<std::size_t>(y * width + x);
      if (residualBlurred[i] < regError) {
        mask[i] = 1;
      }
    }
  }
  return shift;
}

PlainRegistration::PlainRegistration(int width_, int height_, int frameCount)
    : width(width_), height(height_), capacity(static_cast<std::size_t>(frameCount)), fine(width_, height_) {}

void PlainRegistration::prepareFrame(float* frame) {
  if (blurred.size() < capacity) {
    blurred.emplace_back();
    pyramids.emplace_back();
  } else {  // the oldest frame's memory is used again
    std::rotate(blurred.begin(), blurred.begin() + 1, blurred.end());
    std::rotate(pyramids.begin(), pyramids.begin() + 1, pyramids.end());
  }
  cv::Mat_<float>& image = blurred.back();
  cv::GaussianBlur(cv::Mat_<float>(height, width, frame), image, {11, 11}, std::sqrt(3.0f), 0, cv::BORDER_REFLECT_101);
  double minimum = 0, maximum = 0;
  cv::minMaxIdx(image, &minimum, &maximum);
  const auto low = static_cast<float>(minimum), high = static_cast<float>(maximum);
  if (low < displayMin || high > displayMax) {
    const float margin = (high - low) * 0.1f;
    displayMin = low - margin;
    displayMax = high + margin;
    displayOffset = -displayMin;
    displayScale = 255.0f / (displayMax - displayMin);
  }
  cv::Mat_<float> scaled(height, width);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      scaled(y, x) = (image(y, x) + displayOffset) * displayScale;
    }
  }
  cv::Mat grey;
  scaled.convertTo(grey, CV_8U);
  cv::buildOpticalFlowPyramid(grey, pyramids.back(), {21, 21}, 3, true, cv::BORDER_REFLECT_101, cv::BORDER_CONSTANT,
                              true);
}

int PlainRegistration::doRegistration(int frameCount, int refIndex, float** frames, Shift* shifts, char** masks,
                                      float** shiftedFrames) {
  const auto ref = static_cast<std::size_t>(refIndex);
  const int size = width * height;
  fine.setReference(blurred[ref].ptr<float>());
  cv::goodFeaturesToTrack(blurred[ref], corners, 100, 0.1, 2.0, cv::noArray(), 3, false, 0.04);
  for (int i = 0; i < frameCount; ++i) {
    std::fill_n(masks[i], size, i == refIndex ? 1 : 0);
  }
  for (std::size_t i = 0; i < static_cast<std::size_t>(frameCount); ++i) {
    cv::Point_<int> coarse;
    shifts[i] = {0, 0};
    if (i == ref) {
      continue;
    }
    if (!track(ref, i, coarse)) {
      return -9;
    }
    shifts[i] = fine.step(blurred[ref].ptr<float>(), blurred[i].ptr<float>(), coarse, masks[i]);
  }
  for (int i = 0; i < frameCount; ++i) {
    const int ix = roundHalfUp(shifts[i].x), iy = roundHalfUp(shifts[i].y), offset = iy * width + ix;
    for (int k = 0; k < size; ++k) {
      shiftedFrames[i][k] = k + offset >= 0 && k + offset < size ? frames[i][k + offset] : 0.0f;
    }
    shifts[i].x -= static_cast<float>(ix);
    shifts[i].y -= static_cast<float>(iy);
  }
  return 0;
}

bool PlainRegistration::track(std::size_t ref, std::size_t frame, cv::Point_<int>& coarse) const {
  std::vector<cv::Point_<float>> next;
  std::vector<unsigned char> status;
  std::vector<float> error;
  cv::calcOpticalFlowPyrLK(pyramids[ref], pyramids[frame], corners, next, status, error, {21, 21}, 3,
                           {cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01}, 0, 1e-4);
  std::vector<float> dx, dy;
  for (std::size_t i = 0; i < corners.size(); ++i) {
    if (status[i] != 0) {
      dx.push_back(next[i].x - corners[i].x);
      dy.push_back(next[i].y - corners[i].y);
    }
  }
  if (dx.empty()) {
    return false;
  }
  const float medX = upperMedian(dx), medY = upperMedian(dy);
  float sumX = 0, sumY = 0, count = 0;
  for (std::size_t i = 0; i < dx.size(); ++i) {
    if (std::fabs(dx[i] - medX) < 2.0f && std::fabs(dy[i] - medY) < 2.0f) {
      sumX += dx[i];
      sumY += dy[i];
      ++count;
    }
  }
  coarse = {roundHalfUp(sumX * (1 / count)), roundHalfUp(sumY * (1 / count))};
  return count > 0;
}

}  // namespace movra::test
