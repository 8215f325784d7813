#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

namespace detail {
template <class Mask>
class TvSolver;
}

/// Reconstruction of the high-resolution image from registered frames. SrFloatMinimization, SrFloatNeonMinimization and
/// SuperResolutionMinimization are its named forms, which bring the operators.
///
/// Solves (sum_k B_k' M_k B_k + L(x)) x = sum_k B_k' M_k y_k for the padded image x: y_k the normalised frames, B_k the
/// imaging operator, M_k the mask and L the total-variation operator, a weighted graph Laplacian whose weights are
/// frozen at the current x (lagged diffusivity: C. R. Vogel and M. E. Oman; TV-regularised super-resolution: S. Farsiu
/// et al.). Each frozen system is solved by conjugate gradients (R. Fletcher and C. M. Reeves); the weights are renewed
/// whenever a solve converges, within one budget of iterations.
///
/// Sums over images (norms, dot products, statistics) have one shape everywhere: sixteen partial sums, number l over
/// the elements i with i mod 16 = l in ascending order, then combined in halves: l with l + 8, l + 4, l + 2, l + 1. That
/// is on purpose: one running sum would give other bits, lose more digits and leave vector units idle.
///
/// Padded images have (int)(height factor) + K - 1 rows of (int)(width factor) + K - 1 floats, K = (int)(3 factor) being
/// the size of the PSF, and never fewer than the result. That is cut out at row and column (K - 1) / 2.
///
/// All buffers are made in the constructor; the object keeps no pointer of the caller's. One thread at a time.
template <class MaskElement>
class MOVRA_SUPERRESOLUTION_API TvMinimization {
 public:
  /// Weight of one low-resolution pixel: a signed byte or a float.
  using Mask = MaskElement;

  ~TvMinimization();
  TvMinimization(const TvMinimization&) = delete;
  TvMinimization& operator=(const TvMinimization&) = delete;

  /// @{
  /// Standard deviation of the Gaussian PSF in high-resolution pixels; default 0.683. Setting rebuilds the base PSF. What is
  /// not above 0 gives a PSF that is not finite, and so such a result.
  float getPsfSigma() const;
  void setPsfSigma(float sigma);
  /// @}

  /// @{
  /// Inverse strength of the total-variation term (larger smooths less); default 400.
  float getWeightTV() const;
  void setWeightTV(float weight);
  /// @}

  /// @{
  /// Smallest difference between neighbours (in standard deviations of the reference frame) that lowers the weight of
  /// their edge; its inverse is the largest. Default 0.1.
  float getEpsilon() const;
  void setEpsilon(float smallest);
  /// @}

  /// @{
  /// Residual norm, relative to the right-hand side's, at which a solve has converged; default 0.007.
  float getRelRes() const;
  void setRelRes(float residue);
  /// @}

  /// @{
  /// Budget of conjugate-gradient iterations of one reconstruction; default 8. With 0 or less, the result is the
  /// back-projection of the frames.
  int getMaxIter() const;
  void setMaxIter(int iterations);
  /// @}

  /// Reconstructs the high-resolution image. A constant reference frame has no standard deviation: the result is not
  /// finite then.
  /// @param frameCount frames given, at most as many as the object was made for
  /// @param refIndex   the frame whose mean and standard deviation normalise all frames and scale the result back
  /// @param frames     frameCount images, height x width; normalised in place, so changed by the call
  /// @param shifts     one shift per frame in low-resolution pixels, within [-0.5, 0.5]
  /// @param masks      one image per frame, height x width: weight of each pixel, 1 to use it, 0 to leave it out
  /// @param out        (int)(height factor) x (int)(width factor), the result in the frames' unit
  /// @return number of conjugate-gradient iterations made
  /// @throws movra::Exception if there is no frame, there are more than the object was made for, or the reference is not
  ///         one of them; nothing is changed then
  int minimize(int frameCount, int refIndex, float** frames, cv::Point_<float>* shifts, Mask** masks, float* out);

  /// The steps of minimize, for callers that look inside. Each of them takes 0 frames up to as many as the object was made
  /// for, and throws movra::Exception for another number. generatePsfs comes before what uses frames, computeL before what
  /// needs the total-variation weights; before the first computeL they are 0. conjugateGradients and iteration go on
  /// from the estimate that minimize left.

  /// Moves the base PSF by each frame's shift, by linear interpolation between neighbouring taps.
  /// @param shifts one per frame, in low-resolution pixels
  void generatePsfs(int frameCount, cv::Point_<float>* shifts);

  /// Solves the system with the weights frozen at the current estimate.
  /// @param maxIterations 0 or less makes none
  /// @return iterations made; 0 when the estimate already satisfies the residual test
  int conjugateGradients(int frameCount, Mask** masks, int maxIterations);

  /// Freezes the total-variation weights at the current estimate.
  void computeL();

  /// Applies the system operator: out = L x + sum_k B_k' M_k B_k x, two different padded images. Without frames, L x.
  void gradient(float* x, int frameCount, Mask** masks, float* out);

  /// One conjugate-gradient iteration; `index` is not used. Returns true when the solve has converged. A direction p with
  /// p'Ap = 0 makes the estimate infinite or NaN; that never counts as converged.
  bool iteration(int index, int frameCount, Mask** masks);

 protected:
  /// Takes the solver that the named class has made for its convolution.
  MOVRA_SUPERRESOLUTION_LOCAL explicit TvMinimization(std::unique_ptr<detail::TvSolver<MaskElement>> solver);

 private:
  std::unique_ptr<detail::TvSolver<MaskElement>> solver;
};

extern template class TvMinimization<char>;
extern template class TvMinimization<float>;

}  // namespace movra::vision
