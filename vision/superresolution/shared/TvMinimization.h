#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

namespace detail {
template <class Mask>
class DataTerm;
class TvTerm;
class SolverVectors;
}  // namespace detail

/// Reconstruction of the high-resolution image from registered frames, over the operators of a `Convolution` class.
/// SrFloatMinimization and its siblings are its named forms.
///
/// Solves (sum_k B_k' M_k B_k + L(x)) x = sum_k B_k' M_k y_k for the padded image x: y_k the normalised frames, B_k the
/// imaging operator, M_k the mask and L the total-variation operator, a weighted graph Laplacian whose weights are
/// frozen at the current x (lagged diffusivity: C. R. Vogel and M. E. Oman; TV-regularised super-resolution: S. Farsiu
/// et al.). Each frozen system is solved by conjugate gradients (R. Fletcher and C. M. Reeves); the weights are renewed
/// whenever a solve converges, within one budget of iterations.
///
/// Sums over images (norms, dot products, statistics) have one shape everywhere: sixteen partial sums, number l over
/// the elements i with i mod 16 = l in ascending order, then combined in halves: l with l + 8, l + 4, l + 2, l + 1.
///
/// All buffers are made in the constructor; the object keeps no pointer of the caller's. One thread at a time.
template <class Convolution>
class MOVRA_SUPERRESOLUTION_API TvMinimization {
 public:
  using Mask = typename Convolution::Mask;

  /// @param width, height size of a low-resolution frame
  /// @param frameCount    the most frames of one reconstruction
  /// @param factor        up-scaling factor
  /// @throws std::bad_array_new_length if a size is negative or too large
  TvMinimization(int width, int height, int frameCount, float factor);
  ~TvMinimization();
  TvMinimization(const TvMinimization&) = delete;
  TvMinimization& operator=(const TvMinimization&) = delete;

  /// Standard deviation of the Gaussian PSF in high-resolution pixels; default 0.683. Setting rebuilds the base PSF.
  float getPsfSigma() const { return psfSigma; }
  void setPsfSigma(float sigma);

  /// Inverse strength of the total-variation term (larger smooths less); default 400.
  float getWeightTV() const { return weightTV; }
  void setWeightTV(float weight);

  /// Smallest difference between neighbours (in standard deviations of the reference frame) that lowers the weight of
  /// their edge; its inverse is the largest. Default 0.1.
  float getEpsilon() const { return epsilon; }
  void setEpsilon(float smallest);

  /// Residual norm, relative to the right-hand side's, at which a solve has converged; default 0.007.
  float getRelRes() const { return relRes; }
  void setRelRes(float residue) { relRes = residue; }

  /// Budget of conjugate-gradient iterations of one reconstruction; default 8.
  int getMaxIter() const { return maxIter; }
  void setMaxIter(int iterations) { maxIter = iterations; }

  /// Reconstructs the high-resolution image.
  /// @param frameCount frames given, at most as many as the object was made for
  /// @param refIndex   the frame whose mean and standard deviation normalise all frames and scale the result back
  /// @param frames     frameCount images, height x width; normalised in place, so changed by the call
  /// @param shifts     one shift per frame in low-resolution pixels, within [-0.5, 0.5]
  /// @param masks      one image per frame, height x width: weight of each pixel, 1 to use it, 0 to leave it out
  /// @param out        (int)(height factor) x (int)(width factor), the result in the frames' unit
  /// @return number of conjugate-gradient iterations made
  /// @throws movra::Exception if there is no frame, there are more than the object was made for, or the reference is not
  ///         one of them; nothing is changed then
  /// A constant reference frame has no standard deviation: the result is not finite then.
  int minimize(int frameCount, int refIndex, float** frames, cv::Point_<float>* shifts, Mask** masks, float* out);

  /// Moves the base PSF by each frame's shift, by linear interpolation between neighbouring taps.
  /// @param shifts one per frame, in low-resolution pixels
  void generatePsfs(int frameCount, cv::Point_<float>* shifts);

  /// Solves the system with the weights frozen at the current estimate.
  /// @return iterations made; 0 when the estimate already satisfies the residual test
  int conjugateGradients(int frameCount, Mask** masks, int maxIterations);

  /// Freezes the total-variation weights at the current estimate.
  void computeL();

  /// Applies the system operator: out = L x + sum_k B_k' M_k B_k x, two different padded images.
  void gradient(float* x, int frameCount, Mask** masks, float* out);

  /// One conjugate-gradient iteration; `index` is not used. Returns true when the solve has converged.
  bool iteration(int index, int frameCount, Mask** masks);

 private:
  void useFrames(int frameCount, Mask** masks);
  void backProject(float** frames);
  int solve(int maxIterations);
  bool iterate();
  void writeResult(float mean, float deviation, float* out) const;
  template <class Before, class After>
  void applySystem(float* x, float* out, Before before, After after);

  int width;
  int height;
  int frameSize;  // width height
  int psfSize;
  int paddedWidth;
  int paddedHeight;
  int paddedSize;
  int frameCount;
  float factor;
  float psfSigma;
  float weightTV;
  float relRes;
  int maxIter;
  std::unique_ptr<float[]> psf;                      // base PSF
  std::unique_ptr<float[]> psfX;                     // frameCount kernels, horizontal
  std::unique_ptr<float[]> psfY;                     // frameCount kernels, vertical
  std::unique_ptr<detail::DataTerm<Mask>> dataTerm;  // sum_k B_k' M_k B_k and sum_k B_k' M_k y_k
  std::unique_ptr<detail::TvTerm> tvTerm;            // L
  std::unique_ptr<detail::SolverVectors> vectors;    // b, x, r, p, q
  float tvCoefficient;                               // -1 / weightTV
  float epsilon;
  float invEpsilon;
  float residualNorm2;           // ||r||^2 of the current solve
  float invRhsNorm2;             // 1 / ||b||^2
  float beta = 0;                // p = beta p + r is left to the next iteration,
  bool directionIsFinal = true;  // which does it in passing
};

}  // namespace movra::vision
