#include "vision/superresolution/detail/localmotion/TileSolver.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/base/Sums.h"
#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"
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
  isPadded = false;
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

/// Frame k's shift in the tile, in whole pixels and the rest.
TileSolver::Part TileSolver::partOf(const SolverBurst& burst, std::size_t k, int left, int top) const {
  AffineMotion::Shift shift{0, 0};
  if (static_cast<int>(k) != burst.reference) {
    shift = burst.frames[k].field->shiftAt(left + 0.5 * (tileWidth - 1), top + 0.5 * (tileHeight - 1));
  }
  Part part{static_cast<int>(std::floor(shift.x + 0.5)), static_cast<int>(std::floor(shift.y + 0.5)), {}, false};
  part.fraction = {static_cast<float>(shift.x - part.wholeX), static_cast<float>(shift.y - part.wholeY)};
  return part;
}

bool TileSolver::reads(const SolverBurst& burst, const std::vector<std::size_t>& pixels, int left, int top) const {
  for (std::size_t k = 0; k < burst.frames.size(); ++k) {
    const Part part = partOf(burst, k, left, top);
    for (int y = std::max(0, top + part.wholeY); y < std::min(burst.height, top + part.wholeY + tileHeight); ++y) {
      const int from = std::clamp(left + part.wholeX, 0, burst.width);
      const int to = std::clamp(left + part.wholeX + tileWidth, from, burst.width);
      const std::size_t line = static_cast<std::size_t>(y) * static_cast<std::size_t>(burst.width);
      const auto next = std::lower_bound(pixels.begin(), pixels.end(), line + static_cast<std::size_t>(from));
      if (next != pixels.end() && *next < line + static_cast<std::size_t>(to)) {
        return true;
      }
    }
  }
  return false;
}

/// Copies frame k's window at its whole-pixel shift; false if none of its pixels counts.
bool TileSolver::gather(const SolverBurst& burst, std::size_t k, int left, int top, int slot) {
  const SolverFrame& frame = burst.frames[k];
  Part part = partOf(burst, k, left, top);
  float* const pixels = frameMemory.get() + tileSize * static_cast<std::size_t>(slot);
  char* const mask = maskMemory.get() + tileSize * static_cast<std::size_t>(slot);
  int counting = 0;
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
    counting += localMotionKernels().joinMasks(frame.good + line + u0 + from, trusted + from, to - from, use + from);
  }
  part.takesPart = counting > 0;
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

/// The result with its border repeated, once per tile.
void TileSolver::padResult() {
  if (isPadded) {
    return;
  }
  isPadded = true;
  const int paddedWidth = 2 * tileWidth + psfTaps - 1;
  const int paddedHeight = 2 * tileHeight + psfTaps - 1;
  for (int y = 0; y < paddedHeight; ++y) {
    const float* const from =
        result.get() + static_cast<std::ptrdiff_t>(std::clamp(y - crop, 0, 2 * tileHeight - 1)) * 2 * tileWidth;
    float* const to = padded.get() + static_cast<std::ptrdiff_t>(y) * paddedWidth;
    std::fill_n(to, crop, from[0]);
    std::copy_n(from, 2 * tileWidth, to + crop);
    std::fill(to + crop + 2 * tileWidth, to + paddedWidth, from[2 * tileWidth - 1]);
  }
}

void TileSolver::subtractPrediction(const SolverBurst& burst, int k, int x0, int x1, int y0, int y1, float* residual) {
  const Part& part = parts[static_cast<std::size_t>(k)];
  padResult();
  psf.setSigma(static_cast<float>(burst.psfSigma));
  psf.moveTo(1, &part.fraction);
  convolution.validCorrToSparse(padded.get(), psf.x(0), psf.y(0), prediction.get());

  const float* const measured = burst.frames[static_cast<std::size_t>(k)].measured;
  for (int y = y0; y < y1; ++y) {
    const int v = y + part.wholeY;
    if (v < 0 || v >= burst.height) {
      continue;
    }
    const float* const row = prediction.get() + static_cast<std::ptrdiff_t>(y - tileTop) * tileWidth - tileLeft;
    const std::ptrdiff_t line = static_cast<std::ptrdiff_t>(v) * burst.width + part.wholeX;
    const int from = std::max(x0, -part.wholeX), to = std::min(x1, burst.width - part.wholeX);
    for (int x = from; x < to; ++x) {
      residual[line + x] = measured[line + x] - row[x];
    }
  }
}

}  // namespace movra::vision::detail
