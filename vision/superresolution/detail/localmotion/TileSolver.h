#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/superresolution/SrFloatConvolution.h"
#include "vision/superresolution/detail/base/BoxFilter.h"
#include "vision/superresolution/detail/localmotion/MotionField.h"
#include "vision/superresolution/detail/operators/FramePsfs.h"

namespace movra::vision::detail {

template <class Mask>
class TvSolver;

/// A frame as the solver sees it.
struct SolverFrame {
  const float* pixels;       // height x width, all finite
  const float* measured;     // the same, as measured where `pixels` was filled in; NaN where nothing was
  const char* good;          // height x width on the frame's own grid, 0 where the pixel
                             // must not count
  const char* trusted;       // height x width on the reference's grid, 0 where the
                             // motion is not right; null: nowhere
  const MotionField* field;  // against the reference
};

/// Frames of a reconstruction, and what all tiles share.
struct SolverBurst {
  int width;
  int height;
  std::vector<SolverFrame> frames;
  std::vector<SolverFrame> others;  // the same frames by other motions that they show
  std::vector<int> owners;          // index of the frame of each of these
  int reference;
  double referenceDeviation;  // standard deviation of the reference frame
  double psfSigma;            // of the Gaussian that the taps integrate over
                              // high-resolution pixels
};

/// How hard to try.
struct SolverEffort {
  double weightTV;  // referred to the reference's standard deviation
  int iterations;
  int passIterations;  // before the edge weights of the smoothing are made anew
  double relativeResidue;
  /// Standard deviation of a residual's mean over 3 x 3 pixels where the motion is right: more is taken for misalignment,
  /// which is masked, and the tile is solved again. 0: masks stay as they are.
  double smoothedNoise = 0;
};

/// Solves one tile after the other, all of one size, by the solver of SrFloatMinimization, but with the PSF moved exactly,
/// a start of the right level where frames are masked, and the edge weights of the smoothing made anew every few
/// iterations: a third of the iterations then comes as near to the truth.
class TileSolver {
 public:
  TileSolver(int tileWidth, int tileHeight, int frameCount);
  ~TileSolver();

  struct Outcome {
    int iterations = 0;
  };

  /// Solves the tile whose first pixel is (left, top) of the reference.
  Outcome solve(const SolverBurst& burst, const SolverEffort& effort, int left, int top);

  /// The last tile, 2 tileHeight x 2 tileWidth.
  const float* image() const { return result.get(); }

  /// Whether the tile at (left, top) reads one of these pixels (ascending, on the frames' grids) of any frame.
  bool reads(const SolverBurst& burst, const std::vector<std::size_t>& pixels, int left, int top) const;

  /// Writes measured - prediction of frame k by the last tile, at the frame's pixels that belong to the reference's
  /// columns [x0, x1) and rows [y0, y1) within the tile.
  /// @param residual height x width on the frame's own grid
  void subtractPrediction(const SolverBurst& burst, int k, int x0, int x1, int y0, int y1, float* residual);

 private:
  /// A frame's part in the tile.
  struct Part {
    int wholeX;
    int wholeY;
    cv::Point2f fraction;
    int slot;  // among those that take part; -1: it does not
  };

  Part partOf(const SolverBurst& burst, const SolverFrame& frame, int left, int top) const;
  bool gather(const SolverBurst& burst, const SolverFrame& frame, int left, int top);
  void subtractPrediction(const SolverBurst& burst, const SolverFrame& frame, const Part& part, int x0, int x1, int y0,
                          int y1, float* residual);
  void gatherAll(const SolverBurst& burst);
  void predict(const SolverBurst& burst, const cv::Point2f& fraction);
  int maskMisaligned(const SolverBurst& burst, double smoothedNoise);
  double deviationOf(const float* pixels) const;
  void padResult();

  int tileWidth;
  int tileHeight;
  std::size_t tileSize;
  std::unique_ptr<TvSolver<char>> minimization;
  SrFloatConvolution convolution;
  FramePsfs psf;  // of the frame that is predicted
  std::unique_ptr<float[]> frameMemory;
  std::unique_ptr<char[]> maskMemory;
  std::unique_ptr<float[]> result;
  std::unique_ptr<float[]> padded;      // the result with a margin, for predictions
  std::unique_ptr<float[]> prediction;  // tileHeight x tileWidth
  std::vector<float*> frames;           // those that take part, here and below
  std::vector<char*> masks;
  std::vector<cv::Point2f> fractions;
  std::vector<Part> parts;  // of all frames, then of the others
  bool isPadded = false;
  int tileLeft = 0;
  int tileTop = 0;
  int referenceSlot = -1;
  BoxFilter box;               // for the look at the residuals, here and below; tileHeight x tileWidth
  std::vector<float> own;      // residual of the reference
  std::vector<float> slopes;   // mean squared gradient of what is predicted for it
  std::vector<float> misfits;  // mean squared difference of a frame's residual to it
};

}  // namespace movra::vision::detail
