#include "vision/superresolution/detail/registration/CornerStrength.h"

#include <algorithm>

#include "vision/superresolution/detail/base/Mirror.h"
#include "vision/superresolution/detail/registration/FilterKernels.h"

namespace movra::vision::detail {

namespace {

// Of the derivatives: the weights of the mean and the number of pixels in a block's row.
constexpr auto scale = static_cast<float>(1.0 / 12);

}  // namespace

CornerStrength::CornerStrength(cv::Size size_)
    : size(size_),
      continued(makeAlignedFloats(static_cast<std::size_t>(size.width) + 2)),
      differences(makeAlignedFloats(ringRows * static_cast<std::size_t>(size.width))),
      smoothed(makeAlignedFloats(ringRows * static_cast<std::size_t>(size.width))),
      products(makeAlignedFloats(tensorElements * (static_cast<std::size_t>(size.width) + 2))),
      rows(ringRows * tensorElements * static_cast<std::size_t>(size.width)),
      block(tensorElements * static_cast<std::size_t>(size.width)),
      strength(makeAlignedFloats(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height))),
      largest(static_cast<std::size_t>(size.height)) {}

void CornerStrength::compute(const cv::Mat_<float>& image) {
  const int last = size.height - 1;
  int derived = 0;  // rows
  int summed = 0;
  for (int y = 0; y <= last; ++y) {
    const int below = std::min(y + 1, last);
    for (; summed <= below; ++summed) {
      for (; derived <= std::min(summed + 1, last); ++derived) {
        derive(image[derived], derived);
      }
      sumProducts(summed);
    }
    const double* entering[tensorElements];
    const double* leaving[tensorElements];
    double* sums[tensorElements];
    for (int e = 0; e < tensorElements; ++e) {
      entering[e] = rowSums(mirrored(y + 1, size.height), e);
      leaving[e] = rowSums(mirrored(y - 1, size.height), e);
      sums[e] = block.data() + static_cast<std::ptrdiff_t>(e) * size.width;
      for (int x = 0; y == 0 && x < size.width; ++x) {
        sums[e][x] = leaving[e][x] + rowSums(0, e)[x];
      }
    }
    largest[static_cast<std::size_t>(y)] = filterKernels().eigenvalueRow(
        entering, leaving, sums, size.width, strength.get() + static_cast<std::ptrdiff_t>(y) * size.width);
  }
}

void CornerStrength::derive(const float* row, int y) {
  float* first = continued.get() + 1;
  std::copy_n(row, size.width, first);
  first[-1] = row[mirrored(-1, size.width)];
  first[size.width] = row[mirrored(size.width, size.width)];
  filterKernels().fusedDerivativeRow(first, scale, size.width, difference(y), smooth(y));
}

void CornerStrength::sumProducts(int y) {
  const int above = mirrored(y - 1, size.height);
  const int below = mirrored(y + 1, size.height);
  const float* around[] = {difference(above), difference(y), difference(below)};
  float* product[tensorElements];
  for (int e = 0; e < tensorElements; ++e) {
    product[e] = products.get() + static_cast<std::ptrdiff_t>(e) * (size.width + 2);
  }
  filterKernels().fusedDerivativeProducts(around, smooth(above), smooth(below), scale, size.width, product);
  for (int e = 0; e < tensorElements; ++e) {
    product[e][0] = product[e][1 + mirrored(-1, size.width)];
    product[e][size.width + 1] = product[e][1 + mirrored(size.width, size.width)];
    filterKernels().sumThree(product[e], size.width, rowSums(y, e));
  }
}

}  // namespace movra::vision::detail
