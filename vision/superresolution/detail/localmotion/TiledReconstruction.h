#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/superresolution/detail/localmotion/TileLayout.h"
#include "vision/superresolution/detail/localmotion/TileSolver.h"
#include "vision/superresolution/detail/localmotion/WorkspacePool.h"

namespace movra::vision::detail {

/// Runs jobs 0 ... n - 1; see LocalMotionOptions::runJobs. An exception of a job is thrown again once all have ended.
class JobRunner {
 public:
  using Function = std::function<void(int jobs, const std::function<void(int)>& job)>;

  explicit JobRunner(const Function& function) : run(function) {}
  void operator()(int jobs, const std::function<void(int)>& job) const;

 private:
  const Function& run;
};

/// Reconstruction of a whole image from tiles. Tiles go in four groups, in each of which no two touch the same pixel, so
/// that the order within a group does not matter.
class TiledReconstruction {
 public:
  TiledReconstruction(int width, int height, int core, int margin, int frameCount);

  int tileCount() const { return columns.count() * rows.count(); }

  struct Outcome {
    int tiles = 0;
    double iterations = 0;  // mean
    bool cancelled = false;
  };

  /// Solves all tiles into `image`, 2 height x 2 width.
  /// @param goOn asked between the groups with the share done; false ends it
  Outcome solve(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run,
                const std::function<bool(double)>& goOn, cv::Mat_<float>& image);

  /// Residuals of each frame on its own grid, height x width, NaN where there is none.
  using Residuals = std::vector<std::vector<float>>;

  /// First fit: measured - prediction of all frames.
  void fit(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run, Residuals& residuals);

  /// The same again, after these pixels of the frames' grids (ascending) changed: only the tiles that read them.
  void fitAgain(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run,
                const std::vector<std::size_t>& changed, Residuals& residuals);

  /// The same by some tiles all over the image, and those that read one of these pixels (ascending).
  void fitSome(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run,
               const std::vector<std::size_t>& pixels, Residuals& residuals);

  /// The same by some tiles all over the image, as many as tell the noise.
  void fitSample(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run, Residuals& residuals);

 private:
  /// Every step-th tile of every step-th row from a first one on.
  struct Group {
    int firstColumn;
    int firstRow;
    int step;
  };

  static const Group fourGroups[4];

  template <class Wanted, class Finish>
  Outcome solveGroup(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run, const Group& group,
                     Wanted wanted, Finish finish);
  template <class Wanted>
  void fitGroup(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run, const Group& group,
                Wanted wanted, Residuals& residuals);
  void clear(const SolverBurst& burst, Residuals& residuals) const;

  int width;
  int height;
  int frameCount;
  TileAxis columns;
  TileAxis rows;
  WorkspacePool<TileSolver> solvers;
};

}  // namespace movra::vision::detail
