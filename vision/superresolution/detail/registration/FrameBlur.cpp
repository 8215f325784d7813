#include "vision/superresolution/detail/registration/FrameBlur.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/imgproc.hpp>

#include "vision/superresolution/detail/base/Mirror.h"
#include "vision/superresolution/detail/base/Sizes.h"

namespace movra::vision::detail {

FrameBlur::FrameBlur(int width_, int height_)
    : width(width_),
      height(height_),
      continued(
          makeAlignedFloats(checkedArea(height_, width_) > 0 ? static_cast<std::size_t>(width_) + 2 * blurRadius : 0)),
      ring(makeAlignedFloats(height_ > 0 ? blurTaps * static_cast<std::size_t>(width_) : 0)) {
  const auto radius = static_cast<float>(blurRadius);
  const double sigma = std::sqrt(3.0f * radius * radius / 25.0f);
  const cv::Mat_<float> kernel = cv::getGaussianKernel(blurTaps, sigma, CV_32F);
  std::copy(kernel.begin(), kernel.end(), taps);
}

ValueRange FrameBlur::apply(const float* frame, float* blurred) {
  float range[2] = {std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()};
  int filteredRows = 0;
  for (int y = 0; y < height; ++y) {
    for (; filteredRows <= std::min(y + blurRadius, height - 1); ++filteredRows) {
      filterRow(frame + static_cast<std::ptrdiff_t>(filteredRows) * width, ringRow(filteredRows));
    }
    const float* rows[blurTaps];
    for (int i = 0; i < blurTaps; ++i) {
      rows[i] = ringRow(mirrored(y + i - blurRadius, height));
    }
    // A filter along one pixel is none.
    static constexpr float nothing[blurTaps] = {0, 0, 0, 0, 0, 1};
    filterKernels().fusedBlurColumns(rows, height > 1 ? taps : nothing, width,
                                     blurred + static_cast<std::ptrdiff_t>(y) * width, range);
  }
  return {range[0], range[1]};
}

void FrameBlur::filterRow(const float* row, float* filtered) {
  if (width == 1) {
    *filtered = *row;
    return;
  }
  float* first = continued.get() + blurRadius;
  std::copy_n(row, width, first);
  for (int i = 1; i <= blurRadius; ++i) {
    first[-i] = row[mirrored(-i, width)];
    first[width - 1 + i] = row[mirrored(width - 1 + i, width)];
  }
  filterKernels().fusedBlurRow(continued.get(), taps, width, filtered);
}

}  // namespace movra::vision::detail
