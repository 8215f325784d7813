#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"
#include "vision/superresolution/SuperResolutionTypes.h"

namespace movra::vision {

namespace detail {
struct ReferenceEngineParts;
}

/// The reference engine: the method of SrFloat with phase correlation and plain operators, for any integer factor, with a
/// conversion of raw sensor counts in front. It is there to compare the production engine with, and for callers that hold
/// raw frames.
///
/// Low-resolution frames have `height` rows of `width` values, the result (int)(height factor) rows of
/// (int)(width factor), all dense and row-major. Frames and results may be `float` or `short`. The engine copies what it
/// is given and owns all its buffers, which are made once, in the constructor. It is used from one thread at a time.
///
/// Bad pixels are repaired in each frame that enters and in each image that leaves. The image's repair knows factor 2
/// only (see SuperResolutionBadPixelHandling): at another one it recomputes the wrong places.
///
/// Setters reject by throwing a `const char*`, which leaves the engine as it was; NaN is not rejected.
class MOVRA_SUPERRESOLUTION_API SuperResolution {
 public:
  /// Results of computeSR that are not an sr factor.
  static constexpr float registrationFailed = -998.0f;
  static constexpr float displacementTooLarge = -6.0f;
  static constexpr float tooManyMaskedPixels = -3.0f;

  /// @param width  columns of a frame
  /// @param height its rows
  /// @param numFrames     most frames held
  /// @param factor        up-scaling factor, a whole number
  /// @throws std::bad_array_new_length if a size is negative or too large
  /// @throws movra::Exception if the frame has no pixels
  /// @throws const char* "Invalid reference index specified." if there is no room for a frame
  SuperResolution(int width, int height, int numFrames, float factor);
  ~SuperResolution();
  SuperResolution(const SuperResolution&) = delete;
  SuperResolution& operator=(const SuperResolution&) = delete;

  /// @{
  /// Number of pixels of a frame, of the result, and number of frame slots.
  int getInputSize() const;
  int getOutputSize() const;
  int getWindowSize() const;
  /// @}

  /// The registration reference, counted back from the newest frame (0 = newest); default 0.
  int getReferenceIndex() const;
  /// @throws const char* "Invalid reference index specified." unless 0 <= index < number of frames
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

  /// Says whether frames hold raw sensor counts (valid range -32768 ... 32767) or temperatures (-274 ... 5000, the
  /// default).
  void setDataIsNUC(bool isNUC);

  /// Empties the window and the defect maps. The complete shifts stay until the next registration.
  void clearFrames();

  /// @{
  /// Takes a frame into the window; the oldest one drops out once the window is full.
  /// @tparam T    float or short
  /// @param frame height x width values, copied
  /// @return 0, or -2 when the repair of a bad pixel had to use a fallback value
  /// @throws movra::Exception "Too many defect pixels. No processing possible." or "FFT resulted in infinite values. No
  ///         processing possible"; the frame is then in the window
  /// @throws movra::Exception if the pointer is null; nothing is changed then
  template <class T>
  int loadFrame(const T* frame);
  template <class T>
  int addFrame(const T* frame) {
    return loadFrame(frame);
  }
  /// @}

  /// Reconstructs the high-resolution image from the frames held. The number of frames that count as full coverage,
  /// (int)(factor^2 + 1), is that of the first engine in the process that calls this for the type.
  /// @tparam T  float or short
  /// @param out the image as saveFrame gives it; written when the result is positive, -3 or -6
  /// @return the sr factor, 0.75 (no pixel covered by any frame) to 2 (at factor 2: every pixel covered by five frames); or
  ///         -998 when no frame is held or a shift is not within half the height, -6 when a frame lies further than a
  ///         tenth of the height from the reference, -3 when at least half of a frame's pixels are masked out (-6 wins;
  ///         the image is made in both cases); or a negative code of SuperResolutionMinimization
  /// @throws movra::Exception if the pointer is null
  template <class T>
  float computeSR(T* out);

  /// Copies the last result, outputSize values. For `short`, values are truncated toward zero and their low 16 bits taken,
  /// as a two's complement number; values that are not finite give 0.
  /// @throws movra::Exception if the pointer is null
  template <class T>
  void saveFrame(T* out) const;

  /// Calibrates each pixel by two exposures of uniform surfaces: counts and radiometric values of a low and a high one.
  /// Slopes and offsets outside (-1000, 1000) become the mean of their neighbours; a pixel with equal counts has none, and
  /// its radiometric values are NaN, which the window takes for a bad pixel.
  /// The calibration has the size of `nucLow`.
  /// @throws movra::Exception if another image is smaller; nothing is changed then
  void setNucToRad(const cv::Mat_<short>& nucLow, const cv::Mat_<float>& radLow, const cv::Mat_<short>& nucHigh,
                   const cv::Mat_<float>& radHigh);

  /// Converts one raw frame to radiometric values; those outside (-1000, 1000) become the mean of their neighbours.
  /// @throws movra::Exception "NucToRad() not initialized" if the calibration is smaller than the frame
  void NucToRad(const cv::Mat_<short>& nuc);

  /// The frame that NucToRad or processFrame2 converted last, height x width floats.
  const cv::Mat& getRadiometricFrame() const;

  /// Converts a raw frame, takes it into the window and reconstructs, also while fewer frames than the window are held.
  /// @param nuc height x width counts
  /// @param out as for computeSR<float>
  /// @return as computeSR<float>
  /// @throws movra::Exception "NucToRad() not initialized" unless the calibration has the engine's frame size; those of
  ///         NucToRad, addFrame and computeSR
  float processFrame2(const short* nuc, float* out);

  /// True when the image's maximum minus its minimum, over all channels, is at least 2. An empty image has no structure.
  /// @tparam T any element type that a cv::Mat_ can have
  template <class T>
  bool checkImageStructureQuality(const cv::Mat_<T>& img) const;

  /// Computes how the fractional shifts of the frames held spread over the half-pixel grid: each contributes a weight of 1
  /// to the four elements around (2 y + 1, 2 x + 1) of a 3 x 3 matrix, bilinearly; the sum is divided by the number of
  /// frames. What falls outside the matrix is left out. All 0 when no frame is held.
  void computeQuality_();

  /// Copies that matrix.
  void getQuality(cv::Mat_<float>& q) const;

  /// Fills the result with the mean of the working frames, each pixel doubled in both directions whatever the factor, and
  /// the last row and column repeated as often as it takes: an image to compare with. Working frames are the moved frames
  /// of the last reconstruction, normalised to mean 0 and standard deviation 1 of the reference. All 0 when no frame is
  /// held.
  void simpleCombine();

  /// Complete shifts of the last registration, one per frame, oldest first, in low-resolution pixels.
  void getCompleteShifts(std::vector<PointF>& out) const;

  /// Copies each slot's mask into an image of height x width, for all slots whether held or not.
  void getMasks(std::vector<cv::Mat_<unsigned char>>& out) const;

 private:
  static constexpr float minStructureThreshold = 2.0f;

  std::unique_ptr<detail::ReferenceEngineParts> parts;
};

template <class T>
bool SuperResolution::checkImageStructureQuality(const cv::Mat_<T>& img) const {
  if (img.empty()) {
    return false;
  }
  double minimum = 0;
  double maximum = 0;
  cv::Mat values = img.reshape(1);
  if (values.depth() == CV_16F) {
    values.convertTo(values, CV_32F);
  }
  cv::minMaxLoc(values, &minimum, &maximum);
  return maximum - minimum >= static_cast<double>(minStructureThreshold);
}

}  // namespace movra::vision
