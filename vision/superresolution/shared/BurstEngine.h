#pragma once

#include <memory>
#include <type_traits>
#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

namespace detail {
template <class Registration, class Minimization, class BadPixels>
struct EngineParts;
}

/// Super-resolution engine: a sliding window of low-resolution frames, the buffers of a reconstruction, and the
/// collaborators that register, minimise and repair. SrFloat and SrFloatNeon are its named forms.
///
/// Type parameters: `Registration` and `Minimization` share the mask's element type; `BadPixels` repairs frames on the
/// way in and the image on the way out, or does nothing; `Report` writes the timing report, keeps
/// it, or does nothing.
///
/// Low-resolution frames have `height` rows of `width` floats, the result (int)(height factor) rows of
/// (int)(width factor) floats, all dense and row-major. The engine copies what it is given and owns all its buffers,
/// which are made once, in the constructor: about 220 bytes per pixel of a frame for five frames at factor 2, and up to
/// 250 while a call works. It is used from one thread at a time.
///
/// A shift is the position in a frame minus the position in the reference, x to the right, y downward. A mask lies on the
/// reference's grid: 1 where the registration of the frame is trusted, 0 where the pixel takes no part.
///
/// Setters reject by throwing a `const char*`, which leaves the engine as it was; NaN is not rejected.
///
/// The mapping of frames to grey values, by which corners are tracked, lives as long as the engine and is renewed only by
/// a frame that exceeds it. After one frame of a far larger range, for example with a region of 1000 degrees, all later
/// frames may be too flat to be tracked, and computeSR gives -998 until a new engine is made. Phase correlation does not
/// have this.
template <class Registration, class Minimization, class BadPixels, class Report>
class MOVRA_SUPERRESOLUTION_API BurstEngine {
 public:
  using Mask = typename Minimization::Mask;
  /// Image of one slot's mask as getMasks returns it: bytes for byte masks, else the mask's own type.
  using MaskImage = cv::Mat_<std::conditional_t<std::is_same_v<Mask, char>, unsigned char, Mask>>;

  /// Results of computeSR that are not an sr factor.
  static constexpr float registrationFailed = -998.0f;
  static constexpr float displacementTooLarge = -6.0f;
  static constexpr float tooManyMaskedPixels = -3.0f;

  /// @param width  columns of a frame
  /// @param height its rows
  /// @param windowSize    most frames held
  /// @param factor        up-scaling factor, 2 in production
  /// @throws std::bad_array_new_length if a size is negative or too large
  /// @throws movra::Exception with phase correlation, if the frame has no pixels
  /// @throws const char* "Invalid reference index specified." if there is no room for a frame
  BurstEngine(int width, int height, int windowSize, float factor);
  ~BurstEngine();
  BurstEngine(const BurstEngine&) = delete;
  BurstEngine& operator=(const BurstEngine&) = delete;

  /// @{
  /// Number of pixels of a frame, of the result, and number of frame slots.
  int getInputSize() const;
  int getOutputSize() const;
  int getWindowSize() const;
  /// @}

  /// The registration reference, counted back from the newest frame (0 = newest); default 0.
  int getReferenceIndex() const;
  /// @throws const char* "Invalid reference index specified." unless 0 <= index < window size
  void setReferenceIndex(int index);

  /// Largest residual of a pixel that counts as registered; default 1e-4.
  float getRegError() const;
  /// @throws const char* "Invalid maximum registration error specified." unless 0 < error <= 1
  void setRegError(float error);

  /// Standard deviation of the sensor's PSF in high-resolution pixels; default 0.683.
  float getPsfSigma() const;
  /// @throws const char* "Invalid standard deviation of the sensor psf specified." unless sigma > 0
  void setPsfSigma(float sigma);

  /// Inverse strength of the total-variation term; default 400.
  float getWeightTV() const;
  /// @throws const char* "Invalid total-variation term weight specified." unless weight >= 1
  void setWeightTV(float weight);

  /// Relative residual at which a solve stops; default 0.007.
  float getRelativeResidue() const;
  /// @throws const char* "Invalid total-variation term weight specified." unless residue >= 1e-6 (compared as double)
  void setRelativeResidue(float residue);

  /// Most conjugate-gradient iterations of a reconstruction; default 8.
  int getMaxCGIters() const;
  /// @throws const char* "Invalid maximum number of iterations specified." unless iterations >= 1
  void setMaxCGIters(int iterations);

  /// @{
  /// Least range (maximum less minimum) that a frame should have; default 2. The engine keeps it for its callers and
  /// does not test it.
  float getMinStructureThreshold() const;
  void setMinStructureThreshold(float threshold);
  /// @}

  /// Empties the window, the registration's store and the defect maps. The complete shifts stay until the next
  /// registration; buffers, fractional shifts and masks stay too.
  void clearFrames();

  /// @{
  /// Takes a frame into the window; the oldest one drops out once the window is full.
  /// @param data height x width floats, copied
  /// @return 0, or -2 when the repair of a bad pixel had to use a fallback value
  /// @throws movra::Exception "Too many defect pixels. No processing possible."; the frame is then in the window, and
  ///         prepared for registration, because window, registration and defect maps hold the same frames at any time
  /// @throws movra::Exception if the pointer is null; nothing is changed then
  int loadFrame(const float* data);
  int addFrame(const float* data) { return loadFrame(data); }
  /// @param frame read as inputSize dense floats from its first element on, whatever its size and row stride
  /// @throws movra::Exception if it has fewer
  int addFrame(const cv::Mat_<float>& frame);
  /// @}

  /// Reconstructs the high-resolution image from the frames held.
  /// @param out (int)(height factor) x (int)(width factor) floats, not null; not written when the result is -998
  /// @return the sr factor, 0.75 (no position covered by any frame) to 2 (all covered by all); or -998 when registration
  ///         failed (no frame is held, the reference has no corners, a frame could not be tracked), -6 when a frame lies
  ///         further than a tenth of the height from the reference, -3 when at least half of a frame's pixels are masked
  ///         out (-6 wins; the image is made in both cases)
  /// The number of frames that count as full coverage, (int)(factor^2 + 1), is that of the first engine in the process
  /// that calls this for the type.
  /// @throws movra::Exception of the collaborators, for instance "Too large displacement"; cv::Exception or std::bad_alloc
  ///         when OpenCV gets no memory
  float computeSR(float* out);
  /// Creates `out` in the result's size and fills it; a part of a matrix that has this size is written in its place.
  float computeSR(cv::Mat_<float>& out);

  /// Copies the last result, outputSize floats.
  /// @throws movra::Exception if the pointer is null
  void saveFrame(float* out) const;

  /// Complete shifts of the last registration, one per frame, oldest first, in low-resolution pixels; empty before the
  /// first one. The list never gets shorter: what is beyond the frames registered last is older.
  void getCompleteShifts(std::vector<cv::Point_<float>>& out) const;

  /// Copies inputSize bytes of each slot's mask into an image of height x width, for all slots whether held or not. A part
  /// of a matrix that has this size is written in its place.
  void getMasks(std::vector<MaskImage>& out) const;

 protected:
  /// computeSR(out) with a report of the caller's.
  MOVRA_SUPERRESOLUTION_LOCAL float computeSR(float* out, Report& report);

  /// The first two stages of computeSR: shifts and masks.
  /// @return registrationFailed, displacementTooLarge or tooManyMaskedPixels; else 0
  MOVRA_SUPERRESOLUTION_LOCAL float registerFrames(Report& report);

  /// Repairs frames on the way in and the image on the way out.
  MOVRA_SUPERRESOLUTION_LOCAL BadPixels& badPixels();

 private:
  using Parts = detail::EngineParts<Registration, Minimization, BadPixels>;
  std::unique_ptr<Parts> parts;
};

}  // namespace movra::vision
