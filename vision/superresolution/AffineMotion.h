#pragma once

namespace movra::vision {

/// Affine motion of a frame against the reference frame, about the middle of the image.
///
/// The scene point at reference position r lies in the frame at c + A (r - c) + t, with c = ((width - 1) / 2,
/// (height - 1) / 2), A = (xx xy; yx yy) and t = (x, y), in low-resolution pixels, x to the right and y downward. The
/// default is no motion.
struct AffineMotion {
  double xx = 1;
  double xy = 0;
  double yx = 0;
  double yy = 1;
  double x = 0;
  double y = 0;

  struct Shift {
    double x;
    double y;
  };

  /// The frame's position minus the reference position (px, py), in low-resolution pixels.
  /// @param width  columns of a frame
  /// @param height its rows
  Shift shiftAt(double px, double py, int width, int height) const {
    const double dx = px - 0.5 * (width - 1);
    const double dy = py - 0.5 * (height - 1);
    return {(xx - 1) * dx + xy * dy + x, yx * dx + (yy - 1) * dy + y};
  }
};

}  // namespace movra::vision
