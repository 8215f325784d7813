#include "vision/superresolution/detail/localmotion/TiledReconstruction.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <mutex>

namespace movra::vision::detail {

namespace {

constexpr int someStep = 3;  // every third tile of every third row

}  // namespace

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

// In each group no two tiles touch the same pixel.
const TiledReconstruction::Group TiledReconstruction::fourGroups[4] = {{0, 0, 2}, {1, 0, 2}, {0, 1, 2}, {1, 1, 2}};

TiledReconstruction::TiledReconstruction(int w, int h, int core, int margin, int frames)
    : width(w), height(h), frameCount(frames), columns(w, core, margin), rows(h, core, margin) {}

template <class Wanted, class Finish>
TiledReconstruction::Outcome TiledReconstruction::solveGroup(const SolverBurst& burst, const SolverEffort& effort,
                                                             const JobRunner& run, const Group& group, Wanted wanted,
                                                             Finish finish) {
  const int across = (columns.count() - group.firstColumn + group.step - 1) / group.step;
  const int down = (rows.count() - group.firstRow + group.step - 1) / group.step;
  std::vector<int> iterations(static_cast<std::size_t>(across * down), 0);
  run(across * down, [&](int job) {
    const int column = group.firstColumn + group.step * (job % across);
    const int row = group.firstRow + group.step * (job / across);
    auto solver =
        solvers.borrow([&] { return std::make_unique<TileSolver>(columns.length(), rows.length(), frameCount); });
    if (wanted(*solver, column, row)) {
      iterations[static_cast<std::size_t>(job)] =
          solver->solve(burst, effort, columns.begin(column), rows.begin(row)).iterations;
      finish(*solver, column, row);
    }
  });
  Outcome outcome;
  outcome.tiles = across * down;
  for (const int each : iterations) {
    outcome.iterations += each;
  }
  return outcome;
}

TiledReconstruction::Outcome TiledReconstruction::solve(const SolverBurst& burst, const SolverEffort& effort,
                                                        const JobRunner& run, const std::function<bool(double)>& goOn,
                                                        cv::Mat_<float>& image) {
  image.create(2 * height, 2 * width);
  image.setTo(0);
  const auto addTile = [&](TileSolver& solver, int column, int row) {
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
  };
  Outcome outcome;
  int done = 0;
  for (const Group& group : fourGroups) {
    const Outcome part = solveGroup(
        burst, effort, run, group, [](TileSolver&, int, int) { return true; }, addTile);
    outcome.tiles += part.tiles;
    outcome.iterations += part.iterations;
    if (goOn && !goOn(++done / 4.0)) {
      outcome.cancelled = true;
      return outcome;
    }
  }
  outcome.iterations /= std::max(1, outcome.tiles);
  return outcome;
}

template <class Wanted>
void TiledReconstruction::fitGroup(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run,
                                   const Group& group, Wanted wanted, Residuals& residuals) {
  solveGroup(burst, effort, run, group, wanted, [&](TileSolver& solver, int column, int row) {
    for (std::size_t k = 0; k < burst.frames.size(); ++k) {
      solver.subtractPrediction(burst, static_cast<int>(k), columns.coreBegin(column), columns.coreEnd(column),
                                rows.coreBegin(row), rows.coreEnd(row), residuals[k].data());
    }
  });
}

void TiledReconstruction::clear(const SolverBurst& burst, Residuals& residuals) const {
  residuals.resize(burst.frames.size());
  for (std::vector<float>& residual : residuals) {
    residual.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                    std::numeric_limits<float>::quiet_NaN());
  }
}

void TiledReconstruction::fit(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run,
                              Residuals& residuals) {
  clear(burst, residuals);
  for (const Group& group : fourGroups) {
    fitGroup(
        burst, effort, run, group, [](TileSolver&, int, int) { return true; }, residuals);
  }
}

void TiledReconstruction::fitAgain(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run,
                                   const std::vector<std::size_t>& changed, Residuals& residuals) {
  const auto reads = [&](TileSolver& solver, int column, int row) {
    return solver.reads(burst, changed, columns.begin(column), rows.begin(row));
  };
  for (const Group& group : fourGroups) {
    fitGroup(burst, effort, run, group, reads, residuals);
  }
}

void TiledReconstruction::fitSome(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run,
                                  const std::vector<std::size_t>& pixels, Residuals& residuals) {
  clear(burst, residuals);
  const auto wanted = [&](TileSolver& solver, int column, int row) {
    const bool sampled = column % someStep == 1 && row % someStep == 1;
    return sampled || solver.reads(burst, pixels, columns.begin(column), rows.begin(row));
  };
  for (const Group& group : fourGroups) {
    fitGroup(burst, effort, run, group, wanted, residuals);
  }
}

void TiledReconstruction::fitSample(const SolverBurst& burst, const SolverEffort& effort, const JobRunner& run,
                                    Residuals& residuals) {
  clear(burst, residuals);
  constexpr int fewestTiles = 12;
  constexpr int fewestPixels = 20000;
  constexpr int largestStep = 4;
  int step = 2;
  while (step < largestStep) {
    const int next = step + 1;
    const int tiles = ((columns.count() + step) / next) * ((rows.count() + step) / next);
    if (tiles < fewestTiles || width * height / (next * next) < fewestPixels) {
      break;
    }
    step = next;
  }
  fitGroup(
      burst, effort, run, {0, 0, step}, [](TileSolver&, int, int) { return true; }, residuals);
}

}  // namespace movra::vision::detail
