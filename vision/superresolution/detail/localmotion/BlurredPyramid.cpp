#include "vision/superresolution/detail/localmotion/BlurredPyramid.h"

#include <algorithm>

#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int gaussRadius = 8;
constexpr int smallestSide = 20;  // of the last level, where the image has it

/// Gaussian of variance 3 filtered by the inverse of (1 4 1) / 6, whose impulse response is sqrt(3) z^|n| with
/// z = sqrt(3) - 2 (M. Unser). One side and the middle; the whole sums to 1.
struct BlurTaps {
  float taps[gaussRadius + 1];

  BlurTaps() {
    constexpr int reach = 24;
    constexpr double ratio = 0.84648172489061413;  // exp(-1 / 6)
    constexpr double pole = -0.26794919243112270;
    double gauss[reach + 1];
    double odd = ratio;  // ratio^(2 i + 1)
    gauss[0] = 1;
    for (int i = 0; i < reach; ++i) {
      gauss[i + 1] = gauss[i] * odd;
      odd *= ratio * ratio;
    }
    double inverse[2 * reach + 1];
    inverse[0] = 1;
    for (int i = 0; i < 2 * reach; ++i) {
      inverse[i + 1] = inverse[i] * pole;
    }
    double exact[gaussRadius + 1];
    double total = 0;
    for (int i = 0; i <= gaussRadius; ++i) {
      exact[i] = 0;
      for (int j = -reach; j <= reach; ++j) {
        exact[i] += gauss[j < 0 ? -j : j] * inverse[i < j ? j - i : i - j];
      }
      total += i == 0 ? exact[i] : 2 * exact[i];
    }
    for (int i = 0; i <= gaussRadius; ++i) {
      taps[i] = static_cast<float>(exact[i] / total);
    }
  }
};

const BlurTaps& blurTaps() {
  static const BlurTaps taps;
  return taps;
}

/// Adds a pixel's part, filtered by the same taps in both directions, to the image.
void addImpulse(const float* taps, int radius, int x, int y, float difference, PaddedImage& image) {
  for (int v = -radius; v <= radius; ++v) {
    const float along = difference * taps[v < 0 ? -v : v];
    float* const row = image.row(y + v) + x;
    for (int u = -radius; u <= radius; ++u) {
      row[u] += along * taps[u < 0 ? -u : u];
    }
  }
}

constexpr int unmirrored = 20;  // pixels from the border on that the mirrored margins do not show

const float splineTaps[2] = {4.0f / 6.0f, 1.0f / 6.0f};
const float halvingTaps[3] = {6.0f / 16.0f, 4.0f / 16.0f, 1.0f / 16.0f};

}  // namespace

BlurredPyramid::BlurredPyramid(int width, int height) : source(width, height), between(width, height) {
  while (true) {
    images.push_back({PaddedImage(width, height), PaddedImage(width, height)});
    if (std::min(width, height) < 2 * smallestSide) {
      break;
    }
    width = (width + 1) / 2;
    height = (height + 1) / 2;
  }
}

void BlurredPyramid::change(int x, int y, float difference) {
  if (std::min(x, y) < unmirrored || x >= images[0].values.width() - unmirrored ||
      y >= images[0].values.height() - unmirrored) {
    return;
  }
  float both[gaussRadius + 2];  // of blur and spline
  const auto tap = [](int i) { return i <= gaussRadius ? blurTaps().taps[i] : 0.0f; };
  for (int i = 0; i <= gaussRadius + 1; ++i) {
    both[i] = splineTaps[0] * tap(i) + splineTaps[1] * (tap(i + 1) + tap(i == 0 ? 1 : i - 1));
  }
  addImpulse(blurTaps().taps, gaussRadius, x, y, difference, images[0].coefficients);
  addImpulse(both, gaussRadius + 1, x, y, difference, images[0].values);
}

void BlurredPyramid::make(const float* frame) {
  static const BlurTaps blur;
  for (int y = 0; y < source.height(); ++y) {
    std::copy_n(frame + static_cast<std::ptrdiff_t>(y) * source.width(), source.width(), source.row(y));
  }
  source.mirror();
  filter(source, blur.taps, gaussRadius, 1, images[0].coefficients);
  for (std::size_t l = 0;; ++l) {
    images[l].coefficients.mirror();
    filter(images[l].coefficients, splineTaps, 1, 1, images[l].values);
    images[l].values.mirror();
    if (l + 1 == images.size()) {
      break;
    }
    filter(images[l].values, halvingTaps, 2, 2, source);  // only level 0 needs the frame itself
    PaddedImage& next = images[l + 1].coefficients;
    for (int y = 0; y < next.height(); ++y) {
      const float* const from = source.row(2 * y);
      for (int x = 0; x < next.width(); ++x) {
        next.row(y)[x] = from[2 * x];
      }
    }
  }
}

// Each row that is filtered along itself is used while it is in cache.
void BlurredPyramid::filter(const PaddedImage& in, const float* taps, int radius, int every, PaddedImage& out) {
  const LocalMotionKernels& kernels = localMotionKernels();
  int filtered = -radius;  // rows
  for (int y = 0; y < in.height(); y += every) {
    for (; filtered <= y + radius; ++filtered) {
      kernels.blurRow(in.row(filtered), taps, radius, in.width(), between.row(filtered));
    }
    const float* rows[2 * PaddedImage::pad + 1];
    for (int j = -radius; j <= radius; ++j) {
      rows[radius + j] = between.row(y + j);
    }
    kernels.blurColumn(rows + radius, taps, radius, in.width(), out.row(y));
  }
}

}  // namespace movra::vision::detail
