#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "vision/superresolution/detail/base/AlignedArray.h"

namespace movra::vision::detail {

/// Corner strength of images of one size (J. Shi and C. Tomasi): the smaller eigenvalue of the structure tensor of the 3 x 3
/// pixels around each, from derivatives of I. Sobel, mirrored at the borders. Rows of derivatives, of their products and
/// of sums stay in cache. Results are the bits that cv::cornerMinEigenVal has on processors with fused multiply-add.
class CornerStrength {
 public:
  explicit CornerStrength(cv::Size size);

  /// Computes the strength of every pixel of an image of that size.
  void compute(const cv::Mat_<float>& image);

  cv::Size imageSize() const { return size; }
  const float* row(int y) const { return strength.get() + static_cast<std::ptrdiff_t>(y) * size.width; }
  /// The largest strength of a row that is a number, or -infinity.
  float largestOfRow(int y) const { return largest[static_cast<std::size_t>(y)]; }

 private:
  static constexpr int tensorElements = 3;  // x^2, x y, y^2
  static constexpr int ringRows = 3;

  void derive(const float* row, int y);
  void sumProducts(int y);
  float* difference(int y) { return differences.get() + static_cast<std::ptrdiff_t>(y % ringRows) * size.width; }
  float* smooth(int y) { return smoothed.get() + static_cast<std::ptrdiff_t>(y % ringRows) * size.width; }
  double* rowSums(int y, int element) {
    return rows.data() + static_cast<std::ptrdiff_t>(y % ringRows * tensorElements + element) * size.width;
  }

  cv::Size size;
  AlignedFloats continued;    // a row with one more element on both sides
  AlignedFloats differences;  // of neighbours in rows
  AlignedFloats smoothed;     // rows
  AlignedFloats products;     // of derivatives of one row, with one more element on both sides
  std::vector<double> rows;   // sums along rows
  std::vector<double> block;  // sums over the rows around one
  AlignedFloats strength;
  std::vector<float> largest;
};

}  // namespace movra::vision::detail
