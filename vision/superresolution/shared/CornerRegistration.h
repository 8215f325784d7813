#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

namespace detail {
class FineRegistration;
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
/// The mapping to 8 bits lives as long as the object and is renewed only by a frame that exceeds it. After a frame of a
/// far larger range, all later ones may be too flat to be tracked; a new object tracks them.
template <class Mask>
class MOVRA_SUPERRESOLUTION_API CornerRegistration {
 public:
  /// Result of a registration without any usable corner track.
  static constexpr int noTrack = -9;

  /// @param width, height size of a frame
  /// @param numFrames     frames per burst
  /// @param sourcePath    source file that the location text of its exceptions names
  /// @throws std::bad_array_new_length if an argument is negative or too large
  CornerRegistration(int width, int height, int numFrames, const char* sourcePath);
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
  void prepareFrame(float* frame);

  /// Forgets all frames and the shifts of the last registration.
  void clearFrames();

  /// Registers the held frames and moves them onto the reference by whole pixels.
  /// @param frameCount    frames to register; frame i is the one prepared i-th of those held
  /// @param refIndex      the reference among them
  /// @param frames        frameCount images, height x width
  /// @param shifts        frameCount fractional shifts in [-0.5, 0.5], written
  /// @param masks         one image per frame the object was made for, height x width, on the reference's grid: 1 where
  ///                      the registration is trusted, else 0; written
  /// @param shiftedFrames frameCount images, height x width: frame i moved by its whole-pixel shift, written
  /// @return 0, or -9 when the reference has no corners, no corner could be tracked, no tracks agree, or no frame is held;
  ///         then `shifts` and `shiftedFrames` are as before
  /// @throws movra::Exception "Too large displacement" when a shift is not within half the height on both axes; frames
  ///         before that one keep their results
  int doRegistration(int frameCount, int refIndex, float** frames, cv::Point_<float>* shifts, Mask** masks,
                     float** shiftedFrames);

  /// Measures the complete shifts and the masks: the first half of doRegistration, with the same arguments and result.
  int registerFrames(int frameCount, int refIndex, float** frames, cv::Point_<float>* shifts, Mask** masks);

  /// Complete shifts of the last doRegistration, whole pixels included.
  const std::vector<cv::Point_<float>>& getCompleteShifts() const { return lastShifts; }

  /// Clears the masks (all 1 for the reference, 0 for the others) and computes gradients of the blurred reference.
  void initialize(Mask** masks, int refIndex);

  /// Finds up to 100 corners of a blurred reference frame (J. Shi and C. Tomasi).
  void extractCornersRefImage(cv::Mat_<float>& ref);

  /// Whole-pixel shift of `frame` against `ref` from the tracked corners: the rounded mean of the displacements within
  /// 2 pixels of the median. Returns 0 or -9.
  int registerWithCorners(unsigned ref, unsigned frame, cv::Point_<int>& coarse);

  /// Least-squares step from a whole-pixel shift; marks the trusted pixels in `mask` and returns the complete shift.
  cv::Point_<float> opticalFlow(unsigned ref, unsigned frame, cv::Point_<int> coarse, Mask* mask);

  /// Moves a frame by the rounded shift as one flat array, zeros entering at the ends: pixels that leave a row at its
  /// end come in at the neighbouring row. Reduces `shift` to its fractional part.
  void shiftFrame(float* src, cv::Point_<float>& shift, float* dst);

 private:
  void widenDisplayWindow(float minimum, float maximum);

  int width;
  int height;
  int numPixels;
  int numFrames;
  int frameCount;
  int gaussRadius;
  int lkWindow;
  std::vector<cv::Mat_<float>> frames;             // blurred copies, oldest first
  std::vector<std::vector<cv::Mat>> pyramids;      // 8-bit pyramids of the same frames
  cv::Mat_<unsigned char> grey;                    // 8-bit form of the newest frame
  std::unique_ptr<detail::FineRegistration> fine;  // gradients, residual and their thresholds
  std::vector<cv::Point_<float>> corners;
  float displayMax, displayMin, displayScale, displayOffset;  // grey-value window of the 8-bit conversion
  std::vector<cv::Point_<float>> lastShifts;
  std::vector<cv::Point_<float>> measuredShifts;
  const char* sourcePath;
};

extern template class CornerRegistration<char>;
extern template class CornerRegistration<float>;

}  // namespace movra::vision
