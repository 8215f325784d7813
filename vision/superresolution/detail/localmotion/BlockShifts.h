#pragma once

#include <vector>

#include "vision/superresolution/detail/localmotion/AffineEstimation.h"

namespace movra::vision::detail {

/// What one block of the reference says about a frame's motion.
struct BlockShift {
  bool known = false;  // it has structure in both directions and its partner lies inside the frame
  double x = 0;        // shift of its middle, low-resolution pixels
  double y = 0;
  double xx = 0;  // information: inverse of the covariance of that shift
  double xy = 0;
  double yy = 0;
};

/// Blocks of the reference on a regular grid, overlapping by halves.
class BlockShifts {
 public:
  /// @param noise standard deviation of a pixel of a frame
  BlockShifts(const MotionFrame& reference, const ReferenceGrid& finest, double noise);

  const MotionFrame& frame() const { return reference; }
  int columns() const { return columns_; }
  int rows() const { return rows_; }
  std::size_t count() const { return static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_); }
  int step() const { return step_; }

  /// Middle of a block, low-resolution pixels.
  double middleX(int column) const { return first + column * step_ + 0.5 * (size - 2); }
  double middleY(int row) const { return first + row * step_ + 0.5 * (size - 2); }

  /// Measures each block's shift by Gauss-Newton steps from `motion`, whose matrix is kept within a block.
  std::vector<BlockShift> measure(const MotionFrame& frame, const AffineMotion& motion) const;

 private:
  BlockShift measureBlock(int column, int row, const MotionFrame& frame, const AffineMotion& motion,
                          const std::vector<float>& difference, const std::vector<unsigned char>& inside) const;

  MotionFrame reference;
  const ReferenceGrid& grid;
  double noise;
  int frameWidth;
  int frameHeight;
  int size;
  int step_;
  int columns_;
  int rows_;
  static constexpr int first = 4;  // pixels at the border that belong to no block
};

}  // namespace movra::vision::detail
