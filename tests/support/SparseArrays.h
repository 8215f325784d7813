#pragma once

#include <algorithm>
#include <cmath>
#include <string>

#include "tests/support/SyntheticBurst.h"

namespace movra::test {

/// What the sparse PSF operators of one geometry work on, random numbers in arrays of their exact sizes, so that the
/// address sanitizer sees every stray access.
struct SparseArrays {
  int hrWidth, hrHeight, psfWidth, psfHeight;
  float factor;
  int lowWidth = static_cast<int>(static_cast<float>(hrWidth) / factor);
  int lowHeight = static_cast<int>(static_cast<float>(hrHeight) / factor);
  int paddedWidth = std::max(hrWidth + psfWidth - 1, 0);
  int paddedHeight = std::max(hrHeight + psfHeight - 1, 0);
  Image image = randomImage(lowWidth * lowHeight, -2, 2, 1);
  Image hr = randomImage(paddedWidth * paddedHeight, -2, 2, 2);
  Image psfX = randomImage(psfWidth, -1, 1, 3), psfY = randomImage(psfHeight, -1, 1, 4);
  Mask mask = Mask(image.size(), 1);

  template <class Operators>
  Image transposed(Operators&& operators) {
    return transposed(operators, mask);
  }
  template <class Operators, class AnyMask>
  Image transposed(Operators& operators, AnyMask& weights) {
    Image out(hr.size(), 1e30f);
    operators.fullConvFromSparse(image.data(), psfX.data(), psfY.data(), weights.data(), out.data());
    return out;
  }
  template <class Operators>
  Image imaged(Operators&& operators) {
    Image out(image.size(), 1e30f);
    operators.validCorrToSparse(hr.data(), psfX.data(), psfY.data(), out.data());
    return out;
  }

  /// Small integers, whose sums are exact in any order.
  void roundToIntegers() {
    for (Image* values : {&image, &hr, &psfX, &psfY})
      for (float& value : *values) {
        value = std::round(9 * value);
      }
  }

  /// The imaging model of integers: rectangles that lie `rowStep` and `columnStep` apart.
  Image imagedByDefinition(int rowStep, int columnStep) const {
    const auto at = [](int row, int column, int width) { return static_cast<std::size_t>(row * width + column); };
    Image out(image.size());
    for (int y = 0; y < lowHeight; ++y)
      for (int x = 0; x < lowWidth; ++x)
        for (int ky = 0; ky < psfHeight; ++ky)
          for (int kx = 0; kx < psfWidth; ++kx) {
            out[at(y, x, lowWidth)] +=
                psfY[at(0, ky, 0)] * psfX[at(0, kx, 0)] * hr[at(rowStep * y + ky, columnStep * x + kx, paddedWidth)];
          }
    return out;
  }

  /// The two sides of <imaging(hr), image> = <hr, transpose(image)>, exact for integers.
  template <class Operators>
  std::pair<double, double> adjointProducts(Operators&& operators) {
    const auto product = [](const Image& a, const Image& b) {
      double sum = 0;
      for (std::size_t i = 0; i < a.size(); ++i) {
        sum += double{a[i]} * double{b[i]};
      }
      return sum;
    };
    return {product(imaged(operators), image), product(hr, transposed(operators))};
  }

  std::string name() const {
    return std::to_string(hrWidth) + "x" + std::to_string(hrHeight) + " factor " + std::to_string(factor);
  }
};

}  // namespace movra::test
