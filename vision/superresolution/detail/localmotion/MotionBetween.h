#pragma once

#include "vision/superresolution/AffineMotion.h"

namespace movra::vision::detail {

/// The motion of a frame against another one, whose motion is `from` on the same grid.
inline AffineMotion motionBetween(const AffineMotion& from, const AffineMotion& to) {
  const double determinant = from.xx * from.yy - from.xy * from.yx;
  AffineMotion result;
  result.xx = (to.xx * from.yy - to.xy * from.yx) / determinant;
  result.xy = (to.xy * from.xx - to.xx * from.xy) / determinant;
  result.yx = (to.yx * from.yy - to.yy * from.yx) / determinant;
  result.yy = (to.yy * from.xx - to.yx * from.xy) / determinant;
  result.x = to.x - result.xx * from.x - result.xy * from.y;
  result.y = to.y - result.yx * from.x - result.yy * from.y;
  return result;
}

}  // namespace movra::vision::detail
