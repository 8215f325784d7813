#include "vision/superresolution/detail/registration/ImageHalving.h"

#include <algorithm>
#include <vector>

#include "vision/superresolution/detail/base/Mirror.h"
#include "vision/superresolution/detail/registration/RegistrationKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int reach = 2;  // pixels

}  // namespace

void halveImage(const cv::Mat& image, cv::Mat& half) {
  const int channels = image.channels();
  const auto at = [=](int x) { return static_cast<std::ptrdiff_t>(x + reach) * channels; };
  std::vector<unsigned short> sums(static_cast<std::size_t>(at(image.cols + reach)));
  for (int y = 0; y < half.rows; ++y) {
    const unsigned char* rows[2 * reach + 1];
    for (int i = -reach; i <= reach; ++i) {
      rows[i + reach] = image.ptr(mirrored(2 * y + i, image.rows));
    }
    registrationKernels().blurFiveRows(rows, image.cols * channels, sums.data() + at(0));
    for (const int x : {-2, -1, image.cols, image.cols + 1}) {
      std::copy_n(sums.data() + at(mirrored(x, image.cols)), channels, sums.data() + at(x));
    }
    registrationKernels().halveRow(sums.data() + at(0), channels, half.cols, half.ptr(y));
  }
}

}  // namespace movra::vision::detail
