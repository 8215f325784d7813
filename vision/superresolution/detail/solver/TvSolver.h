#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/superresolution/detail/operators/FramePsfs.h"
#include "vision/superresolution/detail/solver/DataTerm.h"
#include "vision/superresolution/detail/solver/ReconstructionSize.h"
#include "vision/superresolution/detail/solver/SolverVectors.h"
#include "vision/superresolution/detail/solver/TvTerm.h"

namespace movra::vision::detail {

/// What TvMinimization does; see there. Conjugate gradients on A x = b with A = sum_k B_k' M_k B_k + L and
/// b = sum_k B_k' M_k y_k, where L is frozen at an earlier estimate.
template <class Mask>
class TvSolver {
 public:
  /// How the solver works with the operators of a named class.
  struct Setup {
    std::unique_ptr<DataTerm<Mask>> dataTerm;
    PsfPlacement placement = PsfPlacement::evenTaps;
    std::size_t slack = 0;  // floats after each image that vector loads of the data term may touch
    /// Whether the first estimate is the back-projection over that of ones, which has the scene's level wherever frames
    /// are masked, instead of the back-projection itself.
    bool normalisedStart = false;
  };

  TvSolver(const ReconstructionSize& size, Setup setup);

  float relRes = 0;
  int maxIter = 0;
  int passIterations = 0;  // most of them before the edge weights are made anew; 0: as many as there are
  FramePsfs psfs;

  float getWeightTV() const { return weightTV; }
  void setWeightTV(float weight);
  float getEpsilon() const { return epsilon; }
  void setEpsilon(float smallest);

  int minimize(int count, int refIndex, float** frames, const cv::Point_<float>* shifts, Mask** masks, float* out);
  void generatePsfs(int count, const cv::Point_<float>* shifts);
  int conjugateGradients(int count, Mask** masks, int maxIterations);
  void computeL();
  void gradient(float* x, int count, Mask** masks, float* out);
  bool iteration(int count, Mask** masks);

 private:
  void requireCount(int count) const;
  void useFrames(int count, Mask** masks);
  void backProject(float** frames);
  void normaliseStart();
  int solve(int maxIterations);
  bool iterate();
  float multiplyDirection();
  void stepUpTo(int end);
  template <class Before, class After>
  void applySystem(float* x, float* out, Before before, After after);
  void writeResult(float mean, float deviation, float* out);

  ReconstructionSize size;
  PsfPlacement placement;
  std::unique_ptr<DataTerm<Mask>> dataTerm;
  TvTerm tvTerm;
  SolverVectors vectors;
  std::vector<float> ones;  // a frame of ones, and a pointer to it per frame, for a normalised start
  std::vector<float*> onesFrames;
  float weightTV = 0;
  float tvCoefficient = 0;  // -1 / weightTV
  float epsilon = 0;
  float invEpsilon = 0;
  float residualNorm2 = 0;  // ||r||^2 of the current solve
  float invRhsNorm2 = 0;    // 1 / ||b||^2

  // An iteration ends with its residual. The estimate's step and the direction's update follow part by part in the next
  // pass over the image, which needs both anyway.
  float alpha = 0;                        // of the last step
  float beta = 0;                         // of the direction update that is due
  const float* estimateBefore = nullptr;  // the step starts here
  int steppedUpTo;                        // pixels of the estimate whose step is made
  bool directionIsCurrent = true;         // no update is due
};

extern template class TvSolver<char>;
extern template class TvSolver<float>;

}  // namespace movra::vision::detail
