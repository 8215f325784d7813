#pragma once

#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/detail/localmotion/BlurredPyramid.h"

namespace movra::vision::detail {

/// The places of the reference frame at which motion is measured, at one level: every second pixel of the blurred frame
/// itself, which the blur allows, every pixel of the smaller versions.
class ReferenceGrid {
 public:
  ReferenceGrid(const BlurredPyramid& reference, int level);

  /// Places from one to the next in pixels of the level; pixels of the frame per pixel of the level.
  int step() const { return step_; }
  int scale() const { return scale_; }
  int columns() const { return columns_; }
  int rows() const { return rows_; }
  std::size_t size() const { return values.size(); }

  const float* valueRow(int row) const { return values.data() + index(row); }
  const float* gradientXRow(int row) const { return gradientX.data() + index(row); }
  const float* gradientYRow(int row) const { return gradientY.data() + index(row); }

  /// Distance of each column from the middle of the frame in halves of its width; the same for a row.
  const float* places() const { return columnPlaces.data(); }
  double place(int row) const;

  /// Differences reference minus moved frame at all places, and where both are inside (1, else 0).
  /// @param usable per pixel of the frame and of the reference, 0 where it tells nothing; null: all usable
  void compare(const BlurredPyramid& frame, const AffineMotion& motion, const unsigned char* usableFrame,
               const unsigned char* usableReference, std::vector<float>& difference,
               std::vector<unsigned char>& inside) const;

  /// Clears `inside` where a mask of the reference's pixels, height x width, is 0.
  void keepInside(const char* where, std::vector<unsigned char>& inside) const;

 private:
  std::size_t index(int row) const { return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_); }

  int level;
  int scale_;
  int step_;
  int columns_;
  int rows_;
  int frameWidth;
  int frameHeight;
  std::vector<float> values;
  std::vector<float> gradientX;
  std::vector<float> gradientY;
  std::vector<float> columnPlaces;
};

}  // namespace movra::vision::detail
