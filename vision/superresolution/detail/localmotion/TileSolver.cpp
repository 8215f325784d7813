#include "vision/superresolution/detail/localmotion/TileSolver.h"

#include <algorithm>
#include <cmath>
#include <functional>

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
constexpr int fewestMasked = 16;        // pixels that are worth another solve
constexpr double weakestTile = 1. / 9;  // of the reference's standard deviation, in the weight of the smoothing

std::unique_ptr<TvSolver<char>> makeSolver(int width, int height, int frameCount) {
  const ReconstructionSize size = reconstructionSize(width, height, frameCount, 2.0f);
  TvSolver<char>::Setup setup;
  setup.dataTerm = std::make_unique<FusedDataTerm>(size);
  setup.placement = PsfPlacement::movedGaussian;
  setup.normalisedStart = true;
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
      prediction(new float[tileSize]()),
      box(width),
      own(tileSize),
      slopes(tileSize),
      misfits(tileSize) {
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
  Outcome outcome;
  gatherAll(burst);
  const auto count = static_cast<int>(frames.size());
  int normaliser = std::max(referenceSlot, 0);
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
  minimization->psfs.setSigma(static_cast<float>(burst.psfSigma));
  minimization->setWeightTV(static_cast<float>(effort.weightTV * share));
  minimization->setEpsilon(static_cast<float>(std::min(largestEpsilon, solverEpsilon / share)));
  minimization->maxIter = effort.iterations;
  minimization->passIterations = effort.passIterations;
  minimization->relRes = static_cast<float>(effort.relativeResidue);
  const auto minimize = [&] {
    isPadded = false;
    outcome.iterations +=
        minimization->minimize(count, normaliser, frames.data(), fractions.data(), masks.data(), result.get());
  };
  minimize();
  if (effort.smoothedNoise > 0 && referenceSlot >= 0 && count > 1) {
    gatherAll(burst);
    if (maskMisaligned(burst, effort.smoothedNoise) >= fewestMasked) {
      minimize();
    }
  }
  return outcome;
}

void TileSolver::gatherAll(const SolverBurst& burst) {
  frames.clear();
  masks.clear();
  fractions.clear();
  parts.clear();
  referenceSlot = -1;
  for (std::size_t k = 0; k < burst.frames.size(); ++k) {
    if (gather(burst, burst.frames[k], tileLeft, tileTop) && static_cast<int>(k) == burst.reference) {
      referenceSlot = static_cast<int>(frames.size()) - 1;
    }
  }
  for (const SolverFrame& frame : burst.others) {
    gather(burst, frame, tileLeft, tileTop);
  }
}

/// What the present result predicts for a frame with this fraction of a pixel, into `prediction`.
void TileSolver::predict(const SolverBurst& burst, const cv::Point2f& fraction) {
  padResult();
  psf.setSigma(static_cast<float>(burst.psfSigma));
  psf.moveTo(1, &fraction);
  convolution.validCorrToSparse(padded.get(), psf.x(0), psf.y(0), prediction.get());
}

/// Masks where a frame's residual differs from the reference's by more than a small misalignment and the noise explain:
///
///     box5(box3(e_k - e_ref)^2) > d^2 box5(g^2) + c s^2
///
/// with d the misalignment, g the gradient of what is predicted for the reference, s the noise. What both frames have
/// alike, such as the error of a wrong PSF, cancels. The blurred frames, by which the masks were made at first, do not show
/// what is wrong with details. Returns how many pixels were masked.
int TileSolver::maskMisaligned(const SolverBurst& burst, double smoothedNoise) {
  constexpr int smoothing = 1, radius = 2;
  constexpr double misalignment = 0.1;  // low-resolution pixels
  constexpr double noiseFactor = 12;    // the variance of a difference is 2 s^2
  const auto scale = static_cast<float>(misalignment * misalignment);
  const auto allowed = static_cast<float>(noiseFactor * smoothedNoise * smoothedNoise);
  const auto ref = static_cast<std::size_t>(referenceSlot);
  predict(burst, fractions[ref]);
  for (int y = 0; y < tileHeight; ++y) {
    const float* const row = prediction.get() + static_cast<std::ptrdiff_t>(y) * tileWidth;
    const float* const above = y > 0 ? row - tileWidth : row;
    const float* const below = y + 1 < tileHeight ? row + tileWidth : row;
    const std::size_t line = static_cast<std::size_t>(y) * static_cast<std::size_t>(tileWidth);
    for (int x = 0; x < tileWidth; ++x) {
      const float gx = 0.5f * (row[std::min(x + 1, tileWidth - 1)] - row[std::max(x - 1, 0)]);
      const float gy = 0.5f * (below[x] - above[x]);
      slopes[line + static_cast<std::size_t>(x)] = gx * gx + gy * gy;
    }
  }
  std::transform(frames[ref], frames[ref] + tileSize, prediction.get(), own.begin(), std::minus<>());
  box.apply(slopes.data(), tileHeight, radius, slopes.data());
  int masked = 0;
  for (std::size_t k = 0; k < frames.size(); ++k) {
    if (k == ref) {
      continue;
    }
    predict(burst, fractions[k]);
    for (std::size_t i = 0; i < tileSize; ++i) {
      misfits[i] = masks[k][i] != 0 && masks[ref][i] != 0 ? frames[k][i] - prediction[i] - own[i] : 0.0f;
    }
    box.apply(misfits.data(), tileHeight, smoothing, misfits.data());
    std::transform(misfits.begin(), misfits.end(), misfits.begin(), [](float d) { return d * d; });
    box.apply(misfits.data(), tileHeight, radius, misfits.data());
    for (std::size_t i = 0; i < tileSize; ++i) {
      if (masks[k][i] != 0 && misfits[i] > scale * slopes[i] + allowed) {
        masks[k][i] = 0;
        ++masked;
      }
    }
  }
  return masked;
}

/// A frame's shift in the tile, in whole pixels and the rest.
TileSolver::Part TileSolver::partOf(const SolverBurst& burst, const SolverFrame& frame, int left, int top) const {
  AffineMotion::Shift shift{0, 0};
  if (&frame != &burst.frames[static_cast<std::size_t>(burst.reference)]) {
    shift = frame.field->shiftAt(left + 0.5 * (tileWidth - 1), top + 0.5 * (tileHeight - 1));
  }
  Part part{static_cast<int>(std::floor(shift.x + 0.5)), static_cast<int>(std::floor(shift.y + 0.5)), {}, -1};
  part.fraction = {static_cast<float>(shift.x - part.wholeX), static_cast<float>(shift.y - part.wholeY)};
  return part;
}

bool TileSolver::reads(const SolverBurst& burst, const std::vector<std::size_t>& pixels, int left, int top) const {
  for (const SolverFrame& frame : burst.frames) {
    const Part part = partOf(burst, frame, left, top);
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

/// Copies a frame's window at its whole-pixel shift. It takes part if some of its pixels counts.
bool TileSolver::gather(const SolverBurst& burst, const SolverFrame& frame, int left, int top) {
  Part part = partOf(burst, frame, left, top);
  const std::size_t slot = frames.size();
  float* const pixels = frameMemory.get() + tileSize * slot;
  char* const mask = maskMemory.get() + tileSize * slot;
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
  part.slot = counting > 0 ? static_cast<int>(slot) : -1;
  parts.push_back(part);
  if (part.slot >= 0) {
    frames.push_back(pixels);
    masks.push_back(mask);
    fractions.push_back(part.fraction);
  }
  return part.slot >= 0;
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
  const auto place = static_cast<std::size_t>(k);
  subtractPrediction(burst, burst.frames[place], parts[place], x0, x1, y0, y1, residual);
  for (std::size_t i = 0; i < burst.others.size(); ++i) {
    if (burst.owners[i] == k) {
      subtractPrediction(burst, burst.others[i], parts[burst.frames.size() + i], x0, x1, y0, y1, residual);
    }
  }
}

void TileSolver::subtractPrediction(const SolverBurst& burst, const SolverFrame& frame, const Part& part, int x0,
                                    int x1, int y0, int y1, float* residual) {
  if (frame.trusted == nullptr) {
    return;
  }
  predict(burst, part.fraction);
  for (int y = y0; y < y1; ++y) {
    const int v = y + part.wholeY;
    if (v < 0 || v >= burst.height) {
      continue;
    }
    const float* const row = prediction.get() + static_cast<std::ptrdiff_t>(y - tileTop) * tileWidth - tileLeft;
    const char* const trusted = frame.trusted + static_cast<std::ptrdiff_t>(y) * burst.width;
    const std::ptrdiff_t line = static_cast<std::ptrdiff_t>(v) * burst.width + part.wholeX;
    const int from = std::max(x0, -part.wholeX), to = std::min(x1, burst.width - part.wholeX);
    for (int x = from; x < to; ++x) {
      if (trusted[x] != 0) {
        residual[line + x] = frame.measured[line + x] - row[x];
      }
    }
  }
}

}  // namespace movra::vision::detail
