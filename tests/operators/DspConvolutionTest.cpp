
#include <random>

#include "movra/Exception.h"
#include "tests/support/Test.h"
#include "vision/superresolution/DSP_Convolution.h"

using movra::vision::DSP_Convolution;

namespace {

std::int64_t wrapInt(std::int64_t value) {
  return static_cast<std::int32_t>(value);
}

/// Data of exact sizes for one object, and both operators recomputed from their definition in 64-bit
/// integers.
template <typename T>
struct Case {
  int hrWidth, hrHeight, psfWidth, psfHeight;
  float factor;
  int lw = static_cast<int>(static_cast<float>(hrWidth) / factor);
  int lh = static_cast<int>(static_cast<float>(hrHeight) / factor);
  int paddedWidth = hrWidth + psfWidth - 1, paddedHeight = hrHeight + psfHeight - 1;
  int outWidth = 2 * lw + 5, outHeight = 2 * lh + 5;
  std::mt19937 random{static_cast<unsigned>(hrWidth * 131 + hrHeight * 17 + psfWidth * 5 + psfHeight)};
  std::vector<T> image = extremes(lw * lh), hr = extremes(paddedWidth * paddedHeight);
  std::vector<T> psfX = extremes(std::max(psfWidth, 6)), psfY = extremes(std::max(psfHeight, 6));
  std::vector<char> mask = std::vector<char>(image.size(), 1);
  DSP_Convolution<T> operators{static_cast<T>(hrWidth), static_cast<T>(hrHeight), static_cast<T>(psfWidth),
                               static_cast<T>(psfHeight), factor};

  static std::size_t at(int row, int column, int width) { return static_cast<std::size_t>(row * width + column); }
  static constexpr T unwritten = 77;

  /// Numbers from the whole range of T, every third one an extreme.
  std::vector<T> extremes(int count) {
    using Limits = std::numeric_limits<T>;
    const T special[] = {Limits::min(), Limits::max(), 0, 1, -1, Limits::min() + 1};
    std::uniform_int_distribution<int> any(Limits::min(), Limits::max());
    std::vector<T> values(static_cast<std::size_t>(count));
    for (T& v : values) {
      v = random() % 3 ? static_cast<T>(any(random)) : special[random() % 6];
    }
    return values;
  }
  std::vector<T> imaged(T scale) {
    std::vector<T> out(image.size(), unwritten);
    operators.setFilterScale(scale);
    operators.validCorrToSparse(hr.data(), psfX.data(), psfY.data(), out.data());
    return out;
  }
  std::vector<T> transposed() {
    std::vector<T> out(at(outHeight, 0, outWidth), unwritten);
    operators.fullConvFromSparse(image.data(), psfX.data(), psfY.data(), mask.data(), out.data());
    return out;
  }
  std::vector<T> imagedDirectly(T scale) const {
    const int stride = static_cast<int>(factor);
    std::vector<T> columns(at(paddedHeight, 0, lw)), out(image.size());
    const auto sum = [scale](const std::vector<T>& in, std::size_t first, std::size_t step, const std::vector<T>& psf,
                             int taps) {
      std::int64_t terms = 0;
      for (std::size_t k = 0; k < static_cast<std::size_t>(taps); ++k) {
        terms += wrapInt(std::int64_t{in[first + k * step]} * psf[k]) / scale;
      }
      return static_cast<T>(terms);
    };
    for (int y = 0; y < paddedHeight; ++y)
      for (int x = 0; x < lw; ++x) {
        columns[at(y, x, lw)] = sum(hr, at(y, stride * x, paddedWidth), 1, psfX, psfWidth);
      }
    for (int r = 0; r < lh; ++r)
      for (int x = 0; x < lw; ++x) {
        out[at(r, x, lw)] = sum(columns, at(stride * r, x, lw), at(1, 0, lw), psfY, psfHeight);
      }
    return out;
  }
  std::vector<T> transposedDirectly() const {
    std::vector<T> out(at(outHeight, 0, outWidth), unwritten);
    for (int y = 0; y < outHeight - 1; ++y)
      for (int x = 0; x < outWidth - 1; ++x) {
        std::int64_t sum = 0;
        for (int r = std::max(y / 2 - 2, 0); r <= std::min(y / 2, lh - 1); ++r)
          for (int c = std::max(x / 2 - 2, 0); c <= std::min(x / 2, lw - 1); ++c) {
            const auto weight = static_cast<signed char>(mask[at(r, c, lw)]);
            const auto sample = static_cast<T>(weight * std::int64_t{image[at(r, c, lw)]});
            const auto tap =
                static_cast<T>(wrapInt(std::int64_t{psfY[at(0, y - 2 * r, 0)]} * psfX[at(0, x - 2 * c, 0)]) / 32768);
            sum += static_cast<T>(std::int64_t{sample} * tap);
          }
        out[at(y, x, outWidth)] = static_cast<T>(static_cast<T>(sum) >> 15);
      }
    return out;
  }
};

template <typename T>
class DspConvolution : public testing::Test {};
using SampleTypes = testing::Types<short, int>;
TYPED_TEST_SUITE(DspConvolution, SampleTypes, );

}  // namespace

TYPED_TEST(DspConvolution, ImagingWrapsLikeTheDefinition) {
  using T = TypeParam;
  using Limits = std::numeric_limits<T>;
  for (const float factor : {1.0f, 2.0f, 3.0f})
    for (const int hrWidth : {0, 1, 7, 67})
      for (const int hrHeight : {1, 13})
        for (const int psfHeight : {1, 6}) {
          Case<T> c{hrWidth, hrHeight, 6, psfHeight, factor};
          for (const T scale : {T{1}, T{-1}, T{3}, T{-7}, T{32767}, Limits::min(), Limits::max()}) {
            EXPECT_EQ(c.imaged(scale), c.imagedDirectly(scale)) << hrWidth << 'x' << hrHeight << " scale " << scale;
          }
        }
}

TYPED_TEST(DspConvolution, QuotientsNextToIntegersAreTruncatedExactly) {
  using T = TypeParam;
  constexpr T limit = std::numeric_limits<T>::max();
  Case<T> c{8190, 1, 1, 1, 1.0f};
  c.psfX = c.psfY = {1};
  for (const T scale : std::vector<T>{2, 3, 49, 98, 103, 10000, limit})  // 49 * (1.0 / 49) is less than 1
    for (const int sign : {-1, 1}) {
      for (int i = 0; i < c.lw; ++i) {
        const int low = i / 6 % (limit / scale + 1);
        const int quotient = i % 2 == 0 ? low : limit / scale - low;
        c.hr[c.at(0, i, 0)] = static_cast<T>(sign * (std::int64_t{quotient} * scale + i / 2 % 3 - 1));
      }
      EXPECT_TRUE(c.imaged(scale) == c.imagedDirectly(scale)) << scale;
    }
}

TYPED_TEST(DspConvolution, TransposeWrapsLikeTheDefinitionAndLeavesTheLastRowAndColumn) {
  using T = TypeParam;
  const char weights[] = {1, 0, 1, static_cast<char>(-1), static_cast<char>(-128), 127, 1};
  for (const int hrWidth : {0, 1, 2, 7, 24, 640})  // the last ones need runs of more than 32767 elements
    for (const int hrHeight : {0, 2, 9, 480}) {
      Case<T> c{hrWidth, hrHeight, 6, 6, 2.0f};
      for (std::size_t i = 0; i < c.mask.size(); ++i) {
        c.mask[i] = weights[i % 7];
      }
      EXPECT_TRUE(c.transposed() == c.transposedDirectly()) << hrWidth << 'x' << hrHeight;
    }
}

TYPED_TEST(DspConvolution, RunsWrapFirstAndShiftAfter) {
  using T = TypeParam;
  const std::vector<T> src(15, 100), kernel(9, 100);  // 3 rows of 5
  std::vector<T> dst(3, 77);
  DSP_Convolution<T>::ImgConv3x3I16sC16s(src.data(), dst.data(), 2, 5, kernel.data(), 2);
  const T run = sizeof(T) == 2 ? (90000 - 65536) >> 2 : 90000 >> 2;
  EXPECT_EQ(dst, (std::vector<T>{run, run, 77}));
}

TYPED_TEST(DspConvolution, BadSizesAndScalesAreRefused) {
  using T = TypeParam;
  using movra::Exception;
  constexpr T largest = std::numeric_limits<T>::max();
  EXPECT_THROW(DSP_Convolution<T>(-1, 4, 6, 6, 2.0f), Exception);
  EXPECT_THROW(DSP_Convolution<T>(4, largest - 4, 6, 6, 2.0f), Exception);

  std::vector<T> hr(81, 1), psf(6, 1), out(25, 5);
  DSP_Convolution<T> unset(4, 4, 6, 6, 2.0f);
  EXPECT_THROW(unset.validCorrToSparse(hr.data(), psf.data(), psf.data(), out.data()), Exception);
}
