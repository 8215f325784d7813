#pragma once

#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/detail/localmotion/BlockShifts.h"

namespace movra::vision::detail {

/// Motion of one frame at every place: an affine motion, plus what the blocks say beyond it.
///
/// Each block's departure from the affine motion counts as far as its own information outweighs what is expected
/// beforehand: no departure, with the variance that neighbouring blocks share. Without local motion the neighbours share
/// nothing, and the field is the affine motion itself. Between the middles of blocks the departure is interpolated
/// linearly in each direction.
class MotionField {
 public:
  MotionField() = default;
  MotionField(const AffineMotion& affine, int width, int height)
      : affineMotion(affine), frameWidth(width), frameHeight(height) {}
  MotionField(const AffineMotion& affine, int width, int height, const BlockShifts& layout,
              const std::vector<BlockShift>& blocks);

  const AffineMotion& affine() const { return affineMotion; }
  bool isAffine() const { return departuresX.empty(); }

  /// Standard deviation of the departures, per axis, in pixels.
  double spread() const { return spread_; }

  /// Steepest change of the shift, pixels per pixel: of the affine part at the most, of the departures in nine tenths
  /// of the places.
  double steepest() const;

  AffineMotion::Shift shiftAt(double x, double y) const;

  /// Columns between which, along a row, the field is linear: 0, the middles of blocks, the width.
  std::vector<int> breaks() const;

 private:
  AffineMotion affineMotion;
  int frameWidth = 0;
  int frameHeight = 0;
  int columns = 0;
  int rows = 0;
  double left = 0;
  double top = 0;
  double step = 1;
  double spread_ = 0;
  std::vector<double> departuresX;
  std::vector<double> departuresY;
};

}  // namespace movra::vision::detail
