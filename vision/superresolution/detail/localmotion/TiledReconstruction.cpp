#include "vision/superresolution/detail/localmotion/TiledReconstruction.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <mutex>

namespace movra::vision::detail {

void JobRunner::operator()(int jobs, const std::function<void(int)>& job) const {
  if (!run) {
    for (int i = 0; i < jobs; ++i) {
      job(i);
    }
    return;
  }
  std::mutex mutex;
  std::exception_ptr failure;
  run(jobs, [&](int i) {
    try {
      job(i);
    } catch (...) {
      const std::lock_guard<std::mutex> lock(mutex);
      failure = std::current_exception();
    }
  });
  if (failure) {
    std::rethrow_exception(failure);
  }
}

TiledReconstruction::TiledReconstruction(int w, int h, int core, int margin, int frames)
    : width(w), height(h), frameCount(frames), columns(w, core, margin), rows(h, core, margin) {}

template <class Finish>
TiledReconstruction::Outcome TiledReconstruction::forEachTile(const SolverBurst& burst, const SolverEffort& effort,
                                                              const JobRunner& run, int groups,
                                                              const std::function<bool(double)>& goOn, Finish finish) {
  Outcome outcome;
  std::vector<TileSolver::Outcome> each(static_cast<std::size_t>(tileCount()));
  for (int group = 0; group < groups; ++group) {
    const int firstColumn = group % 2, firstRow = group / 2;
    const int across = (columns.count() - firstColumn + 1) / 2, down = (rows.count() - firstRow + 1) / 2;
    run(across * down, [&](int job) {
      const int column = firstColumn + 2 * (job % across), row = firstRow + 2 * (job / across);
      auto solver =
          solvers.borrow([&] { return std::make_unique<TileSolver>(columns.length(), rows.length(), frameCount); });
      each[static_cast<std::size_t>(row * columns.count() + column)] =
          solver->solve(burst, effort, columns.begin(column), rows.begin(row));
      finish(*solver, column, row);
    });
    outcome.tiles += across * down;
    if (goOn && !goOn(static_cast<double>(group + 1) / groups)) {
      outcome.cancelled = true;
      return outcome;
    }
  }
  for (const TileSolver::Outcome& tile : each) {
    outcome.iterations += tile.iterations;
  }
  outcome.iterations /= std::max(1, outcome.tiles);
  return outcome;
}

TiledReconstruction::Outcome TiledReconstruction::solve(const SolverBurst& burst, const SolverEffort& effort,
                                                        const JobRunner& run, const std::function<bool(double)>& goOn,
                                                        cv::Mat_<float>& image) {
  image.create(2 * height, 2 * width);
  image.setTo(0);
  constexpr int allGroups = 4;
  return forEachTile(burst, effort, run, allGroups, goOn, [&](TileSolver& solver, int column, int row) {
    const int left = 2 * columns.begin(column), top = 2 * rows.begin(row);
    const int tileWidth = 2 * columns.length(), tileHeight = 2 * rows.length();
    std::vector<float> weights(static_cast<std::size_t>(tileWidth));
    for (int x = 0; x < tileWidth; ++x) {
      weights[static_cast<std::size_t>(x)] = columns.weight(column, left + x);
    }
    for (int y = 0; y < tileHeight; ++y) {
      const float weight = rows.weight(row, top + y);
      if (weight == 0) {
        continue;
      }
      const float* const from = solver.image() + static_cast<std::ptrdiff_t>(y) * tileWidth;
      float* const to = image[top + y] + left;
      for (int x = 0; x < tileWidth; ++x) {
        if (weights[static_cast<std::size_t>(x)] > 0) {
          to[x] += weight * weights[static_cast<std::size_t>(x)] * from[x];
        }
      }
    }
  });
}

TiledReconstruction::Outcome TiledReconstruction::fit(const SolverBurst& burst, const SolverEffort& effort,
                                                      const JobRunner& run, bool sparse,
                                                      std::vector<std::vector<float>>& residuals) {
  residuals.assign(burst.frames.size(),
                   std::vector<float>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                                      std::numeric_limits<float>::quiet_NaN()));
  return forEachTile(burst, effort, run, sparse ? 1 : 4, {}, [&](TileSolver& solver, int column, int row) {
    for (std::size_t k = 0; k < burst.frames.size(); ++k) {
      solver.subtractPrediction(burst, static_cast<int>(k), columns.coreBegin(column), columns.coreEnd(column),
                                rows.coreBegin(row), rows.coreEnd(row), residuals[k].data());
    }
  });
}

}  // namespace movra::vision::detail
