#include "vision/superresolution/detail/localmotion/ReferenceGrid.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"

namespace movra::vision::detail {

ReferenceGrid::ReferenceGrid(const BlurredPyramid& reference, int atLevel)
    : level(atLevel),
      scale_(1 << atLevel),
      step_(atLevel == 0 ? 2 : 1),
      frameWidth(reference.level(0).values.width()),
      frameHeight(reference.level(0).values.height()) {
  const PaddedImage& image = reference.level(level).values;
  columns_ = (image.width() + step_ - 1) / step_;
  rows_ = (image.height() + step_ - 1) / step_;
  const std::size_t count = static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_);
  values.resize(count);
  gradientX.resize(count);
  gradientY.resize(count);
  for (int r = 0; r < rows_; ++r) {
    const float* const row = image.row(r * step_);
    const float* const above = image.row(r * step_ - 1);
    const float* const below = image.row(r * step_ + 1);
    for (int c = 0; c < columns_; ++c) {
      const int x = c * step_;
      values[index(r) + static_cast<std::size_t>(c)] = row[x];
      gradientX[index(r) + static_cast<std::size_t>(c)] = 0.5f * (row[x + 1] - row[x - 1]);
      gradientY[index(r) + static_cast<std::size_t>(c)] = 0.5f * (below[x] - above[x]);
    }
  }
  columnPlaces.resize(static_cast<std::size_t>(columns_));
  for (int c = 0; c < columns_; ++c) {
    columnPlaces[static_cast<std::size_t>(c)] =
        static_cast<float>((c * step_ * scale_ - 0.5 * (frameWidth - 1)) / (0.5 * frameWidth));
  }
}

double ReferenceGrid::place(int row) const {
  return (row * step_ * scale_ - 0.5 * (frameHeight - 1)) / (0.5 * frameWidth);
}

void ReferenceGrid::keepInside(const char* where, std::vector<unsigned char>& inside) const {
  for (int r = 0; r < rows_; ++r) {
    const char* const row =
        where + static_cast<std::ptrdiff_t>(std::min(r * step_ * scale_, frameHeight - 1)) * frameWidth;
    for (int c = 0; c < columns_; ++c) {
      unsigned char& use = inside[index(r) + static_cast<std::size_t>(c)];
      use = use != 0 && row[std::min(c * step_ * scale_, frameWidth - 1)] != 0;
    }
  }
}

void ReferenceGrid::compare(const BlurredPyramid& frame, const AffineMotion& motion, const unsigned char* usableFrame,
                            const unsigned char* usableReference, std::vector<float>& difference,
                            std::vector<unsigned char>& inside) const {
  const PaddedImage& image = frame.level(level).coefficients;
  const float margin = level == 0 ? 4 : 1;
  const float lastU = static_cast<float>(image.width() - 1) - margin;
  const float lastV = static_cast<float>(image.height() - 1) - margin;
  const int border = level == 0 ? 2 : 1;  // places of the reference without a partner
  difference.resize(values.size());
  inside.assign(values.size(), 0);
  const double scale = scale_;
  const float du = static_cast<float>(motion.xx * step_);
  const float dv = static_cast<float>(motion.yx * step_);
  for (int r = 0; r < rows_; ++r) {
    float* const e = difference.data() + index(r);
    unsigned char* const use = inside.data() + index(r);
    const double y = r * step_ * scale;
    const AffineMotion::Shift shift = motion.shiftAt(0, y, frameWidth, frameHeight);
    const float u = static_cast<float>(shift.x / scale);
    const float v = static_cast<float>((y + shift.y) / scale);
    localMotionKernels().sampleLine(image.row(0), image.stride(), image.width(), image.height(), u, v, du, dv, columns_,
                                    e);
    const float* const b = valueRow(r);
    const bool rowCounts = r >= border && r < rows_ - border;
    for (int c = 0; c < columns_; ++c) {
      e[c] = b[c] - e[c];
      const float x = u + static_cast<float>(c) * du;
      const float z = v + static_cast<float>(c) * dv;
      use[c] =
          rowCounts && c >= border && c < columns_ - border && x >= margin && x <= lastU && z >= margin && z <= lastV;
    }
    if (usableFrame == nullptr && usableReference == nullptr) {
      continue;
    }
    for (int c = 0; c < columns_; ++c) {
      if (use[c] == 0) {
        continue;
      }
      const int x = std::min(static_cast<int>((u + static_cast<float>(c) * du) * static_cast<float>(scale_) + 0.5f),
                             frameWidth - 1);
      const int z = std::min(static_cast<int>((v + static_cast<float>(c) * dv) * static_cast<float>(scale_) + 0.5f),
                             frameHeight - 1);
      const int rx = std::min(c * step_ * scale_, frameWidth - 1);
      const int ry = std::min(r * step_ * scale_, frameHeight - 1);
      use[c] = (usableFrame == nullptr || usableFrame[static_cast<std::ptrdiff_t>(z) * frameWidth + x] != 0) &&
               (usableReference == nullptr || usableReference[static_cast<std::ptrdiff_t>(ry) * frameWidth + rx] != 0);
    }
  }
}

}  // namespace movra::vision::detail
