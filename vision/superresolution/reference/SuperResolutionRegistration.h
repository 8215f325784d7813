#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"
#include "vision/superresolution/SuperResolutionTypes.h"
#include "vision/superresolution/reference/SuperResolutionFft2d.h"

namespace movra::vision {

namespace detail {
class PhaseRegistration;
}

/// Registration of the reference engine: phase correlation followed by one least-squares step, the method of
/// SrFloatRegistration1, on frames and spectra that the caller holds.
///
/// Frames are `height` rows of `width` floats, row-major; their half spectra are those that getFft().forward makes. A
/// shift is the position in the frame less the position in the reference, in low-resolution pixels, x to the right, y
/// downward. The object owns the transforms and its work space, keeps nothing of the caller's, and serves one thread at a
/// time.
class MOVRA_SUPERRESOLUTION_API SuperResolutionRegistration {
 public:
  /// Results of a registration that failed.
  static constexpr int noFrames = -9;
  static constexpr int displacementTooLarge = -6;

  /// @param width  columns of a frame
  /// @param height its rows
  /// @param factor        up-scaling factor of the engine; shifts, in low-resolution pixels, do not depend on it
  /// @param gaussRadius   radius of the Gaussian blur before the least-squares step in pixels; where it does not
  ///                      fit the frame, the largest one that does
  /// @throws std::bad_array_new_length if a size is negative or too large
  /// @throws movra::Exception if the frame has no pixels
  SuperResolutionRegistration(int width, int height, float factor, int gaussRadius);
  ~SuperResolutionRegistration();
  SuperResolutionRegistration(const SuperResolutionRegistration&) = delete;
  SuperResolutionRegistration& operator=(const SuperResolutionRegistration&) = delete;

  /// @{
  /// Largest mean squared residual of a pixel that still counts as registered, relative to the gradient energy; default
  /// 1e-4.
  float getRegError() const;
  void setRegError(float maximumError);
  /// @}

  /// The transforms that frames' spectra are made with.
  SuperResolutionFft2d& getFft() { return fft; }

  /// Registers frames and moves them onto the reference by whole pixels.
  /// @param count         number of frames
  /// @param refIndex      the reference among them
  /// @param frames        count images, height x width
  /// @param spectra       their half spectra
  /// @param shifts        count fractional shifts in [-0.5, 0.5], written
  /// @param masks         count images, height x width, on the reference's grid: 1 where the registration is trusted, else
  ///                      0; written
  /// @param workingFrames count images, height x width: frame i moved by its whole-pixel shift, written
  /// @return 0; -9 when there is no frame or the reference is not among them: then nothing is written; -6 when a shift is
  ///         not within half the height on both axes, or not a number: then that frame and those after it keep their
  ///         complete shifts and are copied unmoved
  int doRegistration(int count, int refIndex, float** frames, float (**spectra)[2], PointF* shifts, char** masks,
                     float** workingFrames);

  /// Complete shifts of the last doRegistration, whole pixels included.
  const std::vector<PointF>& getCompleteShifts() const { return completeShifts; }

 private:
  int width;
  int height;
  SuperResolutionFft2d fft;
  std::unique_ptr<detail::PhaseRegistration> phase;  // uses the transforms
  std::vector<cv::Point_<float>> measured;
  std::vector<PointF> completeShifts;
};

}  // namespace movra::vision
