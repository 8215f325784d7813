#pragma once

#include <memory>
#include <vector>

#include "movra/Export.h"
#include "vision/superresolution/LocalMotionOptions.h"
#include "vision/superresolution/LocalMotionResult.h"

namespace movra::vision {

namespace detail {
class LocalMotionBurst;
}

/// Reconstruction of bursts from a moving hand: each part of the image has its own shift in each frame.
///
/// The motion of a frame is affine plus what its blocks say beyond that (roll, zoom, depth, rolling shutter). The image is
/// solved on tiles so small that within each the shift hardly varies, by SrFloatMinimization, and the tiles are
/// cross-faded. No frame is resampled. Bad pixels (flagged, NaN, infinite, out of range, listed) are masked.
///
/// Results are the same bit for bit on every instruction set and for any number of threads (LocalMotionOptions::runJobs).
/// The class starts no thread of its own. It keeps copies of the frames; one thread at a time uses an object.
class MOVRA_SUPERRESOLUTION_API LocalMotionSuperResolution {
 public:
  /// @param width  columns of a frame, at least 8
  /// @param height its rows, at least 8
  /// @throws movra::Exception for a size or an option out of its range, with its name
  LocalMotionSuperResolution(int width, int height, const LocalMotionOptions& options = {});
  ~LocalMotionSuperResolution();
  LocalMotionSuperResolution(const LocalMotionSuperResolution&) = delete;
  LocalMotionSuperResolution& operator=(const LocalMotionSuperResolution&) = delete;

  /// Copies a frame, height x width, dense and row-major, to the end of the burst.
  /// @throws movra::Exception if it is null; nothing is changed then
  void addFrame(const float* frame);

  /// Forgets all frames.
  void clearFrames();

  /// Number of frames held.
  int frameCount() const;

  /// Pixels of the sensor that are known to be bad, height x width, other than 0 where bad; null: none. Copied.
  void setBadPixels(const unsigned char* map);

  /// Fixed pattern that is known from other bursts, height x width in the frames' unit; null: none. Copied. It is
  /// subtracted from every frame before anything else; the search for a pattern goes on from there.
  /// @throws movra::Exception if a value is not finite; nothing is changed then
  void setKnownPattern(const float* pattern);

  /// Motions that are known, one per frame in the order of addFrame, all against the same grid, such as that of one of
  /// the frames. They are taken in place of an estimate; local motion is not looked for then. Empty: estimated.
  /// @throws movra::Exception for a motion that is not finite, shifts by more than the frame's width or height, or
  /// changes a direction by more than a half; nothing is changed then
  void setMotions(const std::vector<AffineMotion>& motions);

  /// Reconstructs from all frames that were added, one or more. The frames stay as they are: a second call gives the same
  /// bits.
  /// @throws movra::Exception if there are motions, and not as many as frames
  LocalMotionResult computeSR();

  /// All but the image: motions, field, coverage and faults of the sensor, the same bits as computeSR would tell, but that
  /// frames which only a fit shows to differ too much (FrameUse::largeResidual) are not left out. Of the
  /// result there are no image, noise, weight and iterations; the last word to the progress function is 0.5.
  /// @throws as computeSR does
  LocalMotionResult registerFrames();

 private:
  MOVRA_SUPERRESOLUTION_LOCAL LocalMotionResult run(bool registrationOnly);

  int width;
  int height;
  LocalMotionOptions options;
  std::unique_ptr<detail::LocalMotionBurst> burst;
};

}  // namespace movra::vision
