#pragma once

#include <vector>

#include "movra/Export.h"

namespace movra::vision {

/// Whether a blur could be measured.
enum class EdgeOutcome { measured, frameTooSmall, noEdge, onlyAlignedEdges, badFit };

/// Which of a frame's lines the camera made up from their neighbours.
enum class InterpolatedLines { none, rows, columns };

/// In words, for a report.
MOVRA_SUPERRESOLUTION_API const char* toString(EdgeOutcome outcome);
/// In words, for a report.
MOVRA_SUPERRESOLUTION_API const char* toString(InterpolatedLines lines);

/// Blur along one axis as a standard deviation in high-resolution pixels, half a low-resolution pixel each.
struct DirectionBlur {
  int windows = 0;         ///< places along edges that were measured; 0: there is no such edge
  double total = 0;        ///< optics and sensor pixel together: what setPsfSigma means
  double optics = 0;       ///< optics alone
  double uncertainty = 0;  ///< standard error of the total
};

/// A pixel near the edge.
struct EdgeProfilePoint {
  double distance;  ///< from the edge, low-resolution pixels, negative on the cold side
  double value;     ///< as in the frame
  double model;     ///< what the fit says
};

struct EdgePsfReport {
  EdgeOutcome outcome = EdgeOutcome::noEdge;
  DirectionBlur x;  ///< from edges that run down the image
  DirectionBlur y;  ///< from edges that run across it
  // Of the window with the smallest error:
  double angle = 0;                       ///< between edge and the nearer axis, degrees
  double contrast = 0;                    ///< warm side less cold side
  double noise = 0;                       ///< root mean square of value less model
  std::vector<EdgeProfilePoint> profile;  ///< by increasing distance
  // Of the whole frame:
  InterpolatedLines interpolated = InterpolatedLines::none;
  double spectrumRatio = 0;  ///< power in the top fifth of frequencies along x over that along y, decades
};

/// Measures the point-spread function from one frame with a straight, slightly slanted edge (after ISO 12233), such as
/// a hot plate before a cold wall.
///
/// Finds windows around straight edges; in each it fits a step of any direction, blurred by a Gaussian and averaged
/// over the square of a sensor pixel, by Levenberg-Marquardt with the robust weights of a soft L1 loss. Windows of a
/// direction are combined by their median. An edge that runs exactly along the pixels shows only one phase and is not
/// used. Errors of the optics' blur: about 0.01 at a contrast of 200 times the noise, 0.03 at 60 times.
///
/// Beside it, whether the camera interpolates rows or columns: then the finest frequencies of one axis are missing, by
/// more than a decade of power against the other, and nothing can be gained along that axis.
///
/// A measurement, not a reconstruction: its last bits are those of the C library's erf. Any thread.
class MOVRA_SUPERRESOLUTION_API EdgePsf {
 public:
  /// @param frame height x width, dense; pixels that are not finite or flagged are left out
  /// @throws movra::Exception for a null frame or a size below 1
  static EdgePsfReport measure(const float* frame, int width, int height);
};

}  // namespace movra::vision
