#include "vision/superresolution/detail/registration/WholePixelMove.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "movra/Exception.h"

namespace movra::vision::detail {

namespace {

// Number of shifts before the first that is not within half the height, which bounds both axes.
int leadingWithin(int count, int height, const cv::Point_<float>* shifts) {
  const auto limit = static_cast<float>(height / 2);
  const auto end = std::find_if_not(shifts, shifts + count, [=](const cv::Point_<float>& shift) {
    return -limit < shift.x && shift.x < limit && -limit < shift.y && shift.y < limit;
  });
  return static_cast<int>(end - shifts);
}

}  // namespace

int wholePixels(float shift) {
  constexpr float limit = 1073741824.0f;
  if (!(shift > -limit)) {
    return shift < 0 ? static_cast<int>(-limit) : 0;
  }
  return static_cast<int>(std::floor(static_cast<double>(std::min(shift, limit)) + 0.5));
}

bool overlaps(cv::Point_<int> shift, int width, int height) {
  return -width < shift.x && shift.x < width && -height < shift.y && shift.y < height;
}

cv::Rect overlapInReference(cv::Point_<int> shift, int width, int height) {
  return {std::max(0, -shift.x), std::max(0, -shift.y), width - std::abs(shift.x), height - std::abs(shift.y)};
}

void moveByWholePixels(const float* src, int width, int height, cv::Point_<float>& shift, float* dst) {
  const int ix = wholePixels(shift.x);
  const int iy = wholePixels(shift.y);
  const std::int64_t size = std::int64_t{width} * height;
  const std::int64_t offset = std::clamp(std::int64_t{iy} * width + ix, -size, size);
  const std::int64_t begin = std::max<std::int64_t>(0, -offset);
  const std::int64_t end = size - std::max<std::int64_t>(0, offset);
  std::fill(dst, dst + begin, 0.0f);
  std::copy(src + begin + offset, src + end + offset, dst + begin);
  std::fill(dst + end, dst + size, 0.0f);
  shift.x -= static_cast<float>(ix);
  shift.y -= static_cast<float>(iy);
}

bool moveAll(int frameCount, int width, int height, float** frames, cv::Point_<float>* shifts, float** movedFrames) {
  const int within = leadingWithin(frameCount, height, shifts);
  for (int i = 0; i < within; ++i) {
    moveByWholePixels(frames[i], width, height, shifts[i], movedFrames[i]);
  }
  for (int i = within; i < frameCount; ++i) {
    std::copy_n(frames[i], std::ptrdiff_t{width} * height, movedFrames[i]);
  }
  return within == frameCount;
}

bool splitShifts(int frameCount, int width, int height, float** frames, cv::Point_<float>* shifts,
                 float** shiftedFrames, std::vector<cv::Point_<float>>& completeShifts) {
  if (completeShifts.size() < static_cast<std::size_t>(frameCount)) {
    completeShifts.resize(static_cast<std::size_t>(frameCount));
  }
  std::copy_n(shifts, std::min(leadingWithin(frameCount, height, shifts) + 1, frameCount), completeShifts.begin());
  return moveAll(frameCount, width, height, frames, shifts, shiftedFrames);
}

void throwTooLargeDisplacement(const char* className, int line) {
  const std::string path = std::string("vision/superresolution/") + className + ".cpp";
  throw Exception("Too large displacement", Exception::locationText(path, line, "doRegistration"));
}

}  // namespace movra::vision::detail
