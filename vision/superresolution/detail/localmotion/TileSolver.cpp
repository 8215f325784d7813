#include "vision/superresolution/detail/localmotion/TileSolver.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/base/Sums.h"
#include "vision/superresolution/detail/solver/FusedDataTerm.h"
#include "vision/superresolution/detail/solver/SolverKernels.h"
#include "vision/superresolution/detail/solver/TvSolver.h"

namespace movra::vision::detail {

namespace {

constexpr int psfTaps = 6;
constexpr int crop = (psfTaps - 1) / 2;  // of the padded grid
constexpr double solverEpsilon = 0.1;    // of the reference's standard deviation
constexpr double largestEpsilon = 0.9;
constexpr double weakestTile = 1. / 9;  // of the reference's standard deviation, in the weight of the smoothing

std::unique_ptr<TvSolver<char>> makeSolver(int width, int height, int frameCount) {
  const ReconstructionSize size = reconstructionSize(width, height, frameCount, 2.0f);
  TvSolver<char>::Setup setup;
  setup.dataTerm = std::make_unique<FusedDataTerm>(size);
  setup.placement = PsfPlacement::movedGaussian;
  return std::make_unique<TvSolver<char>>(size, std::move(setup));
}

}  // namespace

TileSolver::TileSolver(int width, int height, int frameCount)
    : tileWidth(width),
      tileHeight(height),
      tileSize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)),
      minimization(makeSolver(width, height, frameCount)),
      convolution(2 * width, 2 * height, psfTaps, psfTaps, 2.0f),
      psf(psfTaps, 1, 2.0f, PsfPlacement::movedGaussian),
      frameMemory(new float[tileSize * static_cast<std::size_t>(frameCount)]()),
      maskMemory(new char[tileSize * static_cast<std::size_t>(frameCount)]()),
      result(new float[4 * tileSize]()),
      padded(new float[static_cast<std::size_t>(2 * width + psfTaps - 1) *
                       static_cast<std::size_t>(2 * height + psfTaps - 1)]()),
      prediction(new float[tileSize]()) {
  const auto count = static_cast<std::size_t>(frameCount);
  frames.reserve(count);
  masks.reserve(count);
  fractions.reserve(count);
  parts.reserve(count);
}

TileSolver::~TileSolver() = default;

TileSolver::Outcome TileSolver::solve(const SolverBurst& burst, const SolverEffort& effort, int left, int top) {
  tileLeft = left;
  tileTop = top;
  frames.clear();
  masks.clear();
  fractions.clear();
  parts.clear();
  int normaliser = 0;
  for (std::size_t k = 0; k < burst.frames.size(); ++k) {
    const int slot = static_cast<int>(frames.size());
    if (!gather(burst, k, left, top, slot)) {
      continue;
    }
    if (static_cast<int>(k) == burst.reference) {
      normaliser = slot;
    }
    frames.push_back(frameMemory.get() + tileSize * static_cast<std::size_t>(slot));
    masks.push_back(maskMemory.get() + tileSize * static_cast<std::size_t>(slot));
    fractions.push_back(parts[k].fraction);
  }
  Outcome outcome;
  const auto count = static_cast<int>(frames.size());
  const auto sigma = static_cast<float>(burst.psfSigma);

  double deviation = count > 0 ? deviationOf(frames[static_cast<std::size_t>(normaliser)]) : 0;
  for (int k = 0; k < count && !(deviation > 0); ++k) {
    normaliser = k;
    deviation = deviationOf(frames[static_cast<std::size_t>(k)]);
  }
  if (!(deviation > 0)) {
    const float value = count > 0 ? frames[0][0] : burst.frames[static_cast<std::size_t>(burst.reference)].pixels[0];
    std::fill_n(result.get(), 4 * tileSize, value);
    return outcome;
  }
  // The solver works in units of the tile's own deviation: weight and epsilon follow, so that all tiles smooth alike.
  const double share = std::max(deviation / burst.referenceDeviation, weakestTile);
  minimization->psfs.setSigma(sigma);
  minimization->setWeightTV(static_cast<float>(effort.weightTV * share));
  minimization->setEpsilon(static_cast<float>(std::min(largestEpsilon, solverEpsilon / share)));
  minimization->maxIter = effort.iterations;
  minimization->relRes = static_cast<float>(effort.relativeResidue);
  outcome.iterations =
      minimization->minimize(count, normaliser, frames.data(), fractions.data(), masks.data(), result.get());
  return outcome;
}

/// Copies frame k's window at its whole-pixel shift; false if none of its pixels counts.
bool TileSolver::gather(const SolverBurst& burst, std::size_t k, int left, int top, int slot) {
  const SolverFrame& frame = burst.frames[k];
  AffineMotion::Shift shift{0, 0};
  if (static_cast<int>(k) != burst.reference) {
    shift = frame.field->shiftAt(left + 0.5 * (tileWidth - 1), top + 0.5 * (tileHeight - 1));
  }
  Part part{static_cast<int>(std::floor(shift.x + 0.5)), static_cast<int>(std::floor(shift.y + 0.5)), {}, false};
  part.fraction = {static_cast<float>(shift.x - part.wholeX), static_cast<float>(shift.y - part.wholeY)};
  float* const pixels = frameMemory.get() + tileSize * static_cast<std::size_t>(slot);
  char* const mask = maskMemory.get() + tileSize * static_cast<std::size_t>(slot);
  char any = 0;
  for (int y = 0; y < tileHeight; ++y) {
    const int v = top + y + part.wholeY;
    float* const row = pixels + static_cast<std::ptrdiff_t>(y) * tileWidth;
    char* const use = mask + static_cast<std::ptrdiff_t>(y) * tileWidth;
    const std::ptrdiff_t line = static_cast<std::ptrdiff_t>(std::clamp(v, 0, burst.height - 1)) * burst.width;
    const int u0 = left + part.wholeX;
    const int from = std::clamp(-u0, 0, tileWidth), to = std::clamp(burst.width - u0, from, tileWidth);
    for (int x = 0; x < from; ++x) {
      row[x] = frame.pixels[line];
    }
    std::copy(frame.pixels + line + u0 + from, frame.pixels + line + u0 + to, row + from);
    for (int x = to; x < tileWidth; ++x) {
      row[x] = frame.pixels[line + burst.width - 1];
    }
    std::fill_n(use, tileWidth, static_cast<char>(0));
    if (v < 0 || v >= burst.height || frame.trusted == nullptr) {
      continue;
    }
    const char* const trusted = frame.trusted + static_cast<std::ptrdiff_t>(top + y) * burst.width + left;
    for (int x = from; x < to; ++x) {
      use[x] = static_cast<char>(frame.good[line + u0 + x] != 0 && trusted[x] != 0);
      any = static_cast<char>(any | use[x]);
    }
  }
  part.takesPart = any != 0;
  parts.push_back(part);
  return part.takesPart;
}

double TileSolver::deviationOf(const float* pixels) const {
  double sums[partialSums] = {};
  solverKernels().addValues(pixels, static_cast<int>(tileSize), sums);
  const double mean = combineSums(sums) / static_cast<double>(tileSize);
  std::fill_n(sums, partialSums, 0.0);
  solverKernels().addSquaredDeviations(pixels, static_cast<int>(tileSize), mean, sums);
  const double deviation = std::sqrt(combineSums(sums) / static_cast<double>(tileSize));
  // What is left of rounding is no structure.
  return deviation > 1e-6 * std::abs(mean) && deviation > 1e-18 ? deviation : 0;
}

void TileSolver::subtractPrediction(const SolverBurst& burst, int k, int x0, int x1, int y0, int y1, float* residual) {
  const Part& part = parts[static_cast<std::size_t>(k)];
  const int paddedWidth = 2 * tileWidth + psfTaps - 1;
  const int paddedHeight = 2 * tileHeight + psfTaps - 1;
  for (int y = 0; y < paddedHeight; ++y) {
    const float* const from =
        result.get() + static_cast<std::ptrdiff_t>(std::clamp(y - crop, 0, 2 * tileHeight - 1)) * 2 * tileWidth;
    float* const to = padded.get() + static_cast<std::ptrdiff_t>(y) * paddedWidth;
    for (int x = 0; x < paddedWidth; ++x) {
      to[x] = from[std::clamp(x - crop, 0, 2 * tileWidth - 1)];
    }
  }
  psf.setSigma(static_cast<float>(burst.psfSigma));
  psf.moveTo(1, &part.fraction);
  convolution.validCorrToSparse(padded.get(), psf.x(0), psf.y(0), prediction.get());

  const float* const pixels = burst.frames[static_cast<std::size_t>(k)].pixels;
  for (int y = y0; y < y1; ++y) {
    const int v = y + part.wholeY;
    if (v < 0 || v >= burst.height) {
      continue;
    }
    const float* const row = prediction.get() + static_cast<std::ptrdiff_t>(y - tileTop) * tileWidth - tileLeft;
    const std::ptrdiff_t line = static_cast<std::ptrdiff_t>(v) * burst.width + part.wholeX;
    const int from = std::max(x0, -part.wholeX), to = std::min(x1, burst.width - part.wholeX);
    for (int x = from; x < to; ++x) {
      residual[line + x] = pixels[line + x] - row[x];
    }
  }
}

}  // namespace movra::vision::detail
