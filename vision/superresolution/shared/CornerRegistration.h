#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

namespace detail {
struct CornerRegistrationParts;
}

/// Corner-based registration of a burst; SrFloatRegistration2 and SrFloatNeonRegistration are its two forms, which
/// differ in the mask's element type: `char` or `float`.
///
/// Each frame's displacement against a reference frame is measured in two stages: a whole-pixel shift from corners
/// followed by pyramidal Lucas-Kanade tracking (J.-Y. Bouguet), then one linearised least-squares step on the blurred
/// images over the overlap of both frames (B. D. Lucas and T. Kanade). The residual of that step tells which pixels
/// are registered well.
///
/// Frames are `height` rows of `width` floats, row-major. A shift is the position in the frame less the position in
/// the reference, in low-resolution pixels, x to the right, y downward. The object keeps blurred copies and 8-bit
/// pyramids of the last `numFrames` frames, never the caller's arrays; one thread at a time.
///
/// The mapping to 8 bits lives as long as the object and is renewed only by a frame that exceeds it. After one far-off
/// frame, for example with a region of 1000 degrees, all later ones may be too flat to be tracked, and every registration
/// gives -9; a new object tracks them.
///
/// A frame whose range is not finite leaves that mapping as it is.
///
/// Sums over images have sixteen partial sums, by column, which are combined as in TvMinimization.
///
/// A frame for which prepareFrame got no memory is held as one that cannot be tracked.
template <class Mask>
class MOVRA_SUPERRESOLUTION_API CornerRegistration {
 public:
  /// Result of a registration without any usable corner track.
  static constexpr int noTrack = -9;

  ~CornerRegistration();
  CornerRegistration(const CornerRegistration&) = delete;
  CornerRegistration& operator=(const CornerRegistration&) = delete;

  /// @{
  /// Largest mean squared residual of a pixel that still counts as registered, relative to the gradient energy; default 1e-4.
  float getRegError() const;
  void setRegError(float maximumError);
  /// @}

  /// Takes one new frame (height x width) into the store; the oldest one drops out once `numFrames` are held.
  /// @throws movra::Exception if `frame` is null; the store is then as before
  /// @throws cv::Exception, std::bad_alloc without memory; the frame is then held, but cannot be tracked
  void prepareFrame(float* frame);

  /// Forgets all frames. The complete shifts stay until the next doRegistration.
  void clearFrames();

  /// Registers the held frames and moves them onto the reference by whole pixels.
  /// @param frameCount    frames to register; frame i is the one prepared i-th of those held
  /// @param refIndex      the reference among them
  /// @param frames        frameCount images, height x width
  /// @param shifts        frameCount fractional shifts in [-0.5, 0.5], written
  /// @param masks         one image per frame the object was made for, height x width, on the reference's grid: 1 where
  ///                      the registration is trusted, else 0; written
  /// @param shiftedFrames frameCount images, height x width: frame i moved by its whole-pixel shift, written
  /// @return 0, also for a reference alone, with or without corners: then its shift is (0, 0), its mask 1, its copy equal.
  ///         -9 when another frame cannot be tracked: the reference has no corners, none of them was found in the frame,
  ///         or no tracks agree; or when no frame is held, `frameCount` is more than that, or the reference is not among
  ///         them. `shifts` and `shiftedFrames` are then as before, apart from the reference's shift, which is (0, 0) if
  ///         the reference comes before that frame; frames before it have their masks.
  /// @throws movra::Exception "Too large displacement" when a shift is not within half the height on both axes; frames
  ///         before that one keep their results
  int doRegistration(int frameCount, int refIndex, float** frames, cv::Point_<float>* shifts, Mask** masks,
                     float** shiftedFrames);

  /// Measures the complete shifts and the masks: the first half of doRegistration, with the same arguments and result.
  int registerFrames(int frameCount, int refIndex, float** frames, cv::Point_<float>* shifts, Mask** masks);

  /// Complete shifts of the last doRegistration, whole pixels included: the first `frameCount` of the list. The list
  /// never gets shorter; what follows is older.
  const std::vector<cv::Point_<float>>& getCompleteShifts() const;

  /// Clears the masks (all 1 for the reference, 0 for the others), as many as frames the object was made for, and computes
  /// gradients of the blurred reference.
  void initialize(Mask** masks, int refIndex);

  /// Finds up to 100 corners of a blurred reference frame (J. Shi and C. Tomasi) for registerWithCorners. An empty image has
  /// none.
  void extractCornersRefImage(cv::Mat_<float>& ref);

  /// Whole-pixel shift of `frame` against `ref` from the tracked corners: the rounded mean of the displacements within
  /// 2 pixels of the median. Returns 0, or -9 with `coarse` (0, 0).
  int registerWithCorners(unsigned ref, unsigned frame, cv::Point_<int>& coarse);

  /// Least-squares step from a whole-pixel shift; marks the trusted pixels in `mask` and returns the complete shift. Where
  /// one of the frames is not held, it returns `coarse` and marks nothing.
  cv::Point_<float> opticalFlow(unsigned ref, unsigned frame, cv::Point_<int> coarse, Mask* mask);

  /// Moves a frame by the rounded shift as one flat array, zeros entering at the ends: pixels that leave a row at its
  /// end come in at the neighbouring row. Reduces `shift` to its fractional part.
  void shiftFrame(float* src, cv::Point_<float>& shift, float* dst);

 protected:
  /// @param className named class in the location text of its exceptions
  MOVRA_SUPERRESOLUTION_LOCAL CornerRegistration(int width, int height, int numFrames, const char* className);

 private:
  std::unique_ptr<detail::CornerRegistrationParts> parts;
};

extern template class CornerRegistration<char>;
extern template class CornerRegistration<float>;

}  // namespace movra::vision
