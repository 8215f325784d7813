#pragma once

#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/FrameStack.h"

namespace movra::vision::detail {

enum class SensorLines { columns, rows };

/// What each column (or row) of the sensor adds to all frames: one value per column (row), or nothing where none is
/// found beyond chance.
///
/// A fit takes most of such a pattern for scene, so that the mean residual shows little of it. Therefore pattern and the
/// fit's error are estimated together. In a band of rows, the mean residual of frame k in column u is
///
///     m_k(u) = c(u) + sum_j g(u - s_k - j / 2) d_j + noise
///
/// with c the pattern, the same in all bands, d the error of the image, which moves with the scene, and g the
/// point-spread function: least squares with both shrunk by what chance explains.
///
/// @param residuals frame less prediction on each frame's own grid, NaN where there is no prediction
/// @param bad       height x width bytes, not 0 for pixels to leave alone; or null
/// @param limit     larger residuals tell of the scene
std::vector<float> lineOffsets(const FrameStack& residuals, const std::vector<AffineMotion>& motions,
                               const unsigned char* bad, float limit, SensorLines lines);

}  // namespace movra::vision::detail
