#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

class SrFloatFft2d;

namespace detail {
class PhaseRegistration;
}

/// Phase-correlation registration of the production engine, the alternative to SrFloatRegistration2.
///
/// Each frame's displacement against a reference frame is measured in two stages: a whole-pixel shift from the peak of
/// the phase correlation (C. D. Kuglin and D. C. Hines), then one linearised least-squares step on the blurred images
/// over the overlap of both frames (B. D. Lucas and T. Kanade). The residual of that step tells which pixels are
/// registered well.
///
/// Frames are `height` rows of `width` floats, row-major. A shift is the position in the frame less the position in
/// the reference, in low-resolution pixels, x to the right, y downward. The object keeps the half spectra of the last
/// `numFrames` frames, never the caller's arrays; one thread at a time.
///
/// Sums over images have sixteen partial sums, by column, which are combined as in TvMinimization.
///
/// A frame without a usable peak starts the second stage from (0, 0). So does one whose scene has a lower peak than the
/// fixed pattern of the sensor, which does not move: uneven frames far from the reference can be measured wrong. A frame
/// or reference without structure has no shift: the step's division by zero gives NaN, which doRegistration reports as too
/// large a displacement.
class MOVRA_SUPERRESOLUTION_API SrFloatRegistration1 {
 public:
  using Mask = char;

  /// Result of a registration of no frames, or of more than are held.
  static constexpr int noFrames = -9;

  /// @param width  columns of a frame. A size below 11 takes the largest Gaussian that fits it.
  /// @param height its rows
  /// @param numFrames     frames per burst
  /// @throws std::bad_array_new_length if an argument is negative or too large
  /// @throws movra::Exception if the frame has no pixels
  SrFloatRegistration1(int width, int height, int numFrames);
  ~SrFloatRegistration1();
  SrFloatRegistration1(const SrFloatRegistration1&) = delete;
  SrFloatRegistration1& operator=(const SrFloatRegistration1&) = delete;

  /// @{
  /// Largest mean squared residual of a pixel that still counts as registered, relative to the gradient energy; default
  /// 1e-4.
  float getRegError() const;
  void setRegError(float maximumError);
  /// @}

  /// @{
  /// Radius of the Gaussian blur before the second stage in pixels; default 5, also where a smaller one is used because
  /// the frame is small. Setting takes effect at the next registration.
  /// @throws movra::Exception if twice the radius is not less than width and height; nothing is changed
  int getGaussRadius() const;
  void setGaussRadius(int radius);
  /// @}

  /// @{
  /// Half width of the mean filter over the residual in pixels; default 3.
  int getRegErrBlurRadius() const;
  void setRegErrBlurRadius(int radius);
  /// @}

  /// Takes one new frame (height x width) into the store; the oldest one drops out once `numFrames` are held.
  /// @throws movra::Exception if `frame` is null; the store is then as before
  void prepareFrame(float* frame);

  /// Forgets all frames. The complete shifts stay until the next doRegistration.
  void clearFrames();

  /// Registers the held frames and moves them onto the reference by whole pixels.
  /// @param count         frames to register; frame i is the one prepared i-th of those held
  /// @param refIndex      the reference among them
  /// @param frames        count images, height x width, as they were prepared
  /// @param shifts        count fractional shifts in [-0.5, 0.5], written
  /// @param masks         count images, height x width, on the reference's grid: 1 where the registration is trusted, else
  ///                      0; written
  /// @param shiftedFrames count images, height x width: frame i moved by its whole-pixel shift, written
  /// @return 0; or -9 when fewer than `count` frames are held, none is asked for or the reference is not among them:
  ///         then nothing is written
  /// @throws movra::Exception "Too large displacement" when a shift is not within half the height on both axes, or not a
  ///         number; frames before that one keep their results
  int doRegistration(int count, int refIndex, float** frames, cv::Point_<float>* shifts, char** masks,
                     float** shiftedFrames);

  /// Measures the complete shifts and the masks: the first half of doRegistration, with the same arguments. Does nothing
  /// where doRegistration gives -9.
  void registerFrames(int count, int refIndex, float** frames, cv::Point_<float>* shifts, char** masks);

  /// Complete shifts of the last doRegistration, whole pixels included: the first `count` of the list. The list never gets
  /// shorter; what follows is older.
  const std::vector<cv::Point_<float>>& getCompleteShifts() const { return lastShifts; }

  /// Clears `count` masks and computes the gradients of the blurred reference.
  void initialize(char** masks, int count);

  /// Whole-pixel shift of the last frame registered against its reference: the first of the highest peaks of the phase
  /// correlation, or (0, 0) if there is none above the value at no shift.
  cv::Point_<int> phaseCorrelation();

  /// Least-squares step from a whole-pixel shift of the last frame registered; marks the trusted pixels in `mask` and
  /// returns the complete shift.
  cv::Point_<float> opticalFlow(cv::Point_<int> coarse, char* mask);

  /// Moves a frame by the rounded shift as one flat array, zeros entering at the ends: pixels that leave a row at its
  /// end come in at the neighbouring row. Reduces `shift` to its fractional part.
  void shiftFrame(float* src, cv::Point_<float>& shift, float* dst);

 private:
  bool holds(int count, int refIndex) const;

  int width;
  int height;
  int numPixels;
  int numFrames;
  int frameCount;
  int numBins;
  std::unique_ptr<float[][2]> spectrumMemory;  // numFrames half spectra
  std::vector<float (*)[2]> spectra;           // in it, oldest first
  std::unique_ptr<SrFloatFft2d> fft;
  std::unique_ptr<detail::PhaseRegistration> phase;  // uses the transforms
  std::vector<cv::Point_<float>> lastShifts;
  std::vector<cv::Point_<float>> measuredShifts;
};

}  // namespace movra::vision
