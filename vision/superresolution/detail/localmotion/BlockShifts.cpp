#include "vision/superresolution/detail/localmotion/BlockShifts.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int rounds = 8;
constexpr double blurGain = 0.16;   // noise of a blurred frame per noise of a frame
constexpr double samePixels = 9.4;  // places that share one independent value of the blurred noise
constexpr double farthest = 4;      // from the start, pixels
constexpr int largestBlock = 16;    // places along a side

int blockCount(int extent, int first, int size, int step) {
  return extent < 2 * first + size ? 0 : (extent - 2 * first - size) / step + 1;
}

/// Sums over a block: products of the gradient (with its mean taken out) and of gradient and difference.
struct BlockSums {
  double xx, xy, yy, xe, ye, ee;
};

}  // namespace

BlockShifts::BlockShifts(const MotionFrame& givenReference, const ReferenceGrid& finest, double givenNoise)
    : reference(givenReference),
      grid(finest),
      noise(givenNoise),
      frameWidth(givenReference.pyramid->level(0).values.width()),
      frameHeight(givenReference.pyramid->level(0).values.height()),
      size(std::min(frameWidth, frameHeight) >= 200 ? 32 : 24),
      step_(size / 2),
      columns_(blockCount(frameWidth, first, size, step_)),
      rows_(blockCount(frameHeight, first, size, step_)) {
  if (columns_ == 0 || rows_ == 0) {
    columns_ = rows_ = 0;
  }
}

std::vector<BlockShift> BlockShifts::measure(const MotionFrame& frame, const AffineMotion& motion) const {
  std::vector<BlockShift> blocks(count());
  std::vector<float> difference;
  std::vector<unsigned char> inside;
  grid.compare(*frame.pyramid, motion, frame.usable, reference.usable, difference, inside);
  for (int r = 0; r < rows_; ++r) {
    for (int c = 0; c < columns_; ++c) {
      blocks[static_cast<std::size_t>(r * columns_ + c)] = measureBlock(c, r, frame, motion, difference, inside);
    }
  }
  return blocks;
}

BlockShift BlockShifts::measureBlock(int column, int row, const MotionFrame& frame, const AffineMotion& motion,
                                     const std::vector<float>& difference,
                                     const std::vector<unsigned char>& inside) const {
  const int n = size / grid.step();
  const int c0 = (first + column * step_) / grid.step();
  const int r0 = (first + row * step_) / grid.step();
  const double places = n * n;
  BlockShift block;

  float meanX = 0, meanY = 0;
  for (int r = r0; r < r0 + n; ++r) {
    for (int c = c0; c < c0 + n; ++c) {
      if (inside[static_cast<std::size_t>(r * grid.columns() + c)] == 0) {
        return block;
      }
      meanX += grid.gradientXRow(r)[c];
      meanY += grid.gradientYRow(r)[c];
    }
  }
  meanX /= static_cast<float>(places);
  meanY /= static_cast<float>(places);

  const auto sumsOf = [&](const float* e, std::ptrdiff_t stride) {
    float mean = 0;
    for (int r = 0; r < n; ++r) {
      for (int c = 0; c < n; ++c) {
        mean += e[r * stride + c];
      }
    }
    mean /= static_cast<float>(places);
    BlockSums sums{};
    for (int r = 0; r < n; ++r) {
      const float* const gx = grid.gradientXRow(r0 + r) + c0;
      const float* const gy = grid.gradientYRow(r0 + r) + c0;
      float s[6] = {};
      for (int c = 0; c < n; ++c) {
        const float x = gx[c] - meanX;
        const float y = gy[c] - meanY;
        const float d = e[r * stride + c] - mean;
        s[0] += x * x;
        s[1] += x * y;
        s[2] += y * y;
        s[3] += x * d;
        s[4] += y * d;
        s[5] += d * d;
      }
      sums.xx += static_cast<double>(s[0]);
      sums.xy += static_cast<double>(s[1]);
      sums.yy += static_cast<double>(s[2]);
      sums.xe += static_cast<double>(s[3]);
      sums.ye += static_cast<double>(s[4]);
      sums.ee += static_cast<double>(s[5]);
    }
    return sums;
  };

  const double middleColumn = middleX(column), middleRow = middleY(row);
  const AffineMotion::Shift start = motion.shiftAt(middleColumn, middleRow, frameWidth, frameHeight);
  BlockSums sums = sumsOf(difference.data() + r0 * grid.columns() + c0, grid.columns());
  const double determinant = sums.xx * sums.yy - sums.xy * sums.xy;
  const double half = 0.5 * (sums.xx + sums.yy);
  const double smallest = half - std::sqrt(std::max(0.0, half * half - determinant));
  const double least = 0.15 * noise;  // a gradient that the noise of the blurred frame could make
  if (!(smallest > places * least * least) || !(determinant > 0)) {
    return block;
  }

  double x = start.x, y = start.y;
  const PaddedImage& image = frame.pyramid->level(0).coefficients;
  for (int round = 0;; ++round) {
    const double dx = (sums.yy * sums.xe - sums.xy * sums.ye) / determinant;
    const double dy = (sums.xx * sums.ye - sums.xy * sums.xe) / determinant;
    x += dx;
    y += dy;
    if (!(std::abs(x - start.x) < farthest) || !(std::abs(y - start.y) < farthest)) {
      return block;
    }
    if (round + 1 == rounds || std::max(std::abs(dx), std::abs(dy)) < (round == 0 ? 0.05 : 0.01)) {
      sums.ee = std::max(0.0, sums.ee - sums.xe * dx - sums.ye * dy);
      break;
    }
    // The block again, moved.
    float e[largestBlock * largestBlock];
    const double left = grid.step() * c0, top = grid.step() * r0;
    for (int r = 0; r < n; ++r) {
      const double fromX = left - middleColumn, fromY = top + grid.step() * r - middleRow;
      const float u = static_cast<float>(middleColumn + x + motion.xx * fromX + motion.xy * fromY);
      const float v = static_cast<float>(middleRow + y + motion.yx * fromX + motion.yy * fromY);
      const float du = static_cast<float>(motion.xx * grid.step()), dv = static_cast<float>(motion.yx * grid.step());
      localMotionKernels().sampleLine(image.row(0), image.stride(), image.width(), image.height(), u, v, du, dv, n,
                                      e + r * n);
      const float* const b = grid.valueRow(r0 + r) + c0;
      for (int c = 0; c < n; ++c) {
        e[r * n + c] = b[c] - e[r * n + c];
      }
    }
    sums = sumsOf(e, n);
  }
  const double error = std::max(sums.ee / places, 2 * blurGain * blurGain * noise * noise);
  const double scale = 1 / (samePixels * std::max(error, 1e-30));
  block.known = true;
  block.x = x;
  block.y = y;
  block.xx = scale * sums.xx;
  block.xy = scale * sums.xy;
  block.yy = scale * sums.yy;
  return block;
}

}  // namespace movra::vision::detail
