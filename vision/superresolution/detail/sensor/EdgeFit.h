#pragma once

#include <vector>

#include "vision/superresolution/EdgePsf.h"

namespace movra::vision::detail {

/// A square part of a frame with an edge through it.
struct EdgeWindow {
  int left;
  int top;
  int size;
  double angle;     // of the normal, which points to the warm side, radians
  double distance;  // of the edge from the middle of the window along the normal
  double energy;    // of the gradient

  double middleX() const { return left + 0.5 * (size - 1); }
  double middleY() const { return top + 0.5 * (size - 1); }
};

/// The edge that fits a window best: low + contrast E(x cos(angle) + y sin(angle) - distance) with x and y from the
/// middle of the window, where E is a unit step after a Gaussian of deviation `blur` and the mean over a square of side
/// 1. Lengths in low-resolution pixels.
struct EdgeFit {
  bool converged = false;
  double angle = 0;
  double low = 0;
  double contrast = 0;
  double blur = 0;
  double blurError = 0;  // standard error
  double rms = 0;
  std::vector<EdgeProfilePoint> profile;
};

EdgeFit fitEdge(const float* frame, int width, const EdgeWindow& window);

}  // namespace movra::vision::detail
