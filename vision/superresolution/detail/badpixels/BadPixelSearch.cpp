#include "vision/superresolution/detail/badpixels/BadPixelSearch.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "vision/superresolution/detail/badpixels/BadPixelList.h"

namespace movra::vision::detail {

namespace {

using Histogram = cv::Mat_<int>;
using Pixel = cv::Point_<unsigned short>;

// The sum of the bins first ... last as they slide over a histogram; bins outside it count nothing.
class SlidingSum {
 public:
  SlidingSum(const Histogram& histogram, int firstBin, int lastBin) : hist(histogram), first(firstBin), last(lastBin) {
    for (int bin = std::max(first, 0); bin <= std::min(last, hist.cols - 1); ++bin) {
      sum += hist(0, bin);
    }
  }

  std::int64_t value() const { return sum; }

  // Moves on by one bin; false if what leaves the sum would make it negative.
  bool advance() {
    const std::int64_t leaving = count(first++);
    if (leaving > sum) {
      return false;
    }
    sum += count(++last) - leaving;
    return true;
  }

 private:
  std::int64_t count(int bin) const { return bin >= 0 && bin < hist.cols ? hist(0, bin) : 0; }

  const Histogram& hist;
  int first, last;
  std::int64_t sum = 0;
};

// The pixels of an image grouped by value, each group in raster order.
class PixelsByValue {
 public:
  explicit PixelsByValue(const cv::Mat_<short>& img) : starts(valueCount + 1), pixels(img.total()) {
    for (const short value : img) {
      ++starts[indexOf(value) + 1];
    }
    for (std::size_t i = 0; i < valueCount; ++i) {
      starts[i + 1] += starts[i];
    }
    std::vector<std::size_t> ends(starts.begin(), starts.end() - 1);
    for (int y = 0; y < img.rows; ++y) {
      for (int x = 0; x < img.cols; ++x) {
        pixels[ends[indexOf(img(y, x))]++] = Pixel(static_cast<unsigned short>(x), static_cast<unsigned short>(y));
      }
    }
  }

  template <class Visitor>
  void forEachWith(int value, Visitor visit) const {
    if (value < INT16_MIN || value > INT16_MAX) {
      return;
    }
    for (std::size_t i = starts[indexOf(value)]; i < starts[indexOf(value) + 1]; ++i) {
      visit(pixels[i]);
    }
  }

 private:
  static constexpr std::size_t valueCount = 65536;
  static std::size_t indexOf(int value) { return static_cast<std::size_t>(value - INT16_MIN); }

  std::vector<std::size_t> starts;
  std::vector<Pixel> pixels;
};

// The pixels found so far, never more than the capacity.
struct Found {
  std::size_t capacity;
  std::vector<Pixel> pixels;

  bool full() const { return pixels.size() >= capacity; }
  void add(const Pixel& pixel) {
    if (!full()) {
      pixels.push_back(pixel);
    }
  }
};

// Finds the pixels at or beyond the bounds and takes their bins out of the histogram; false if they are too
// many.
bool findExtremes(const cv::Mat_<short>& img, Histogram& hist, short lo, short hi, Found& found) {
  int& below = hist(0, 0);
  int& above = hist(0, hist.cols - 1);
  const std::int64_t total = std::int64_t{below} + above;
  if (total > static_cast<std::int64_t>(found.capacity)) {
    return false;
  }
  if (below > 0 || above > 0) {
    for (int y = 0; y < img.rows; ++y) {
      for (int x = 0; x < img.cols; ++x) {
        if (img(y, x) >= hi || img(y, x) <= lo) {
          found.add(Pixel(static_cast<unsigned short>(x), static_cast<unsigned short>(y)));
        }
      }
    }
  }
  below = above = 0;
  return true;
}

// Finds the pixels in isolated bins; false if the search ends before the last bin.
bool findRare(const cv::Mat_<short>& img, const Histogram& hist, short lo, int maxCount, int window, Found& found) {
  const PixelsByValue pixelsByValue(img);
  SlidingSum right(hist, 0, window);
  SlidingSum left(hist, -window, 0);
  SlidingSum centre(hist, -(window / 2), window / 2);
  int bin = 0;
  for (; bin < hist.cols && !found.full(); ++bin) {
    if (bin > 0 && !(right.advance() && left.advance() && centre.advance())) {
      return false;
    }
    const bool isolated = hist(0, bin) >= 1 && std::max({left.value(), right.value(), centre.value()}) < maxCount;
    if (isolated) {
      pixelsByValue.forEachWith(bin + lo, [&](const Pixel& pixel) { found.add(pixel); });
    }
  }
  return bin == hist.cols;
}

cv::Mat_<unsigned short> listOf(const Found& found, cv::Size_<int> imageSize) {
  if (found.pixels.empty()) {
    return {};
  }
  cv::Mat_<unsigned short> list(static_cast<int>(found.pixels.size()), listColumns);
  list.setTo(0);
  for (int i = 0; i < list.rows; ++i) {
    unsigned short* row = list[i];
    row[0] = found.pixels[static_cast<std::size_t>(i)].x;
    row[1] = found.pixels[static_cast<std::size_t>(i)].y;
    row[firstReplacement] = static_cast<unsigned short>(imageSize.width);
    row[firstReplacement + 1] = static_cast<unsigned short>(imageSize.height);
  }
  return list;
}

}  // namespace

bool buildValueHistogram(const cv::Mat_<short>& img, cv::Mat_<int>& hist, short lo, short hi) {
  if (img.empty() || lo >= hi) {
    return false;
  }
  hist.create(1, hi - lo + 1);
  hist.setTo(0);
  int* bins = hist[0];
  for (const short value : img) {
    ++bins[std::clamp(value, lo, hi) - lo];
  }
  return true;
}

bool findBadPixels(const cv::Mat_<short>& img, cv::Mat_<int>& hist, cv::Mat_<unsigned short>& list, short lo, short hi,
                   unsigned short maxCount, unsigned short window) {
  if (img.empty() || maxCount == 0 || window < 2 || list.cols != listColumns) {
    return false;
  }
  if (std::max(img.rows, img.cols) > largestPosition || hist.rows != 1 || hist.empty()) {
    return false;
  }
  list.setTo(0);
  Found found{static_cast<std::size_t>(list.rows), {}};
  const bool searched = findExtremes(img, hist, lo, hi, found) && findRare(img, hist, lo, maxCount, window, found);
  list = listOf(found, img.size());
  return searched;
}

}  // namespace movra::vision::detail
