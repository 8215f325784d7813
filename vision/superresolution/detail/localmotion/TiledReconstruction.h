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

  /// First fit: frame - prediction of every frame on its own grid, NaN where there is none.
  /// @param sparse every second tile in each direction only, which tells the noise
  /// @param residuals frames of width height floats
  Outcome fit(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run, bool sparse,
              std::vector<std::vector<float>>& residuals);

 private:
  template <class Finish>
  Outcome forEachTile(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run, int groups,
                      const std::function<bool(double)>& goOn, Finish finish);

  int width;
  int height;
  int frameCount;
  TileAxis columns;
  TileAxis rows;
  WorkspacePool<TileSolver> solvers;
};

}  // namespace movra::vision::detail
