#include "vision/superresolution/detail/solver/TvSolver.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "movra/Exception.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/base/Sums.h"
#include "vision/superresolution/detail/solver/SolverKernels.h"

namespace movra::vision::detail {

template <class Mask>
TvSolver<Mask>::TvSolver(const ReconstructionSize& size_, Setup setup)
    : psfs(size_.psfSize, size_.frameCount, size_.factor, setup.placement),
      size(size_),
      placement(setup.placement),
      dataTerm(std::move(setup.dataTerm)),
      tvTerm(size.paddedWidth, size.paddedHeight),
      vectors(static_cast<std::size_t>(size.paddedPixels()), setup.slack),
      steppedUpTo(size.paddedPixels()) {
  if (setup.normalisedStart) {
    ones.assign(static_cast<std::size_t>(size.framePixels()), 1.0f);
    onesFrames.assign(static_cast<std::size_t>(size.frameCount), ones.data());
  }
}

template <class Mask>
void TvSolver<Mask>::setWeightTV(float weight) {
  weightTV = weight;
  tvCoefficient = -1.0f / weight;
}

template <class Mask>
void TvSolver<Mask>::setEpsilon(float smallest) {
  epsilon = smallest;
  invEpsilon = 1.0f / smallest;
}

template <class Mask>
int TvSolver<Mask>::minimize(int count, int refIndex, float** frames, const cv::Point_<float>* shifts, Mask** masks,
                             float* out) {
  requireCount(count);
  if (refIndex < 0 || refIndex >= count) {  // always so without frames
    MOVRA_THROW("The reference is not one of the frames");
  }
  const SolverKernels& kernels = solverKernels();

  const int pixels = size.framePixels();
  double sums[partialSums] = {};
  kernels.addValues(frames[refIndex], pixels, sums);
  const double mean = combineSums(sums) / pixels;
  std::fill_n(sums, partialSums, 0.0);
  kernels.addSquaredDeviations(frames[refIndex], pixels, mean, sums);
  const double variance = combineSums(sums) / pixels;
  const float offset = static_cast<float>(mean);
  const float scale = std::sqrt(static_cast<float>(variance));
  for (int k = 0; k < count; ++k) {
    kernels.normalise(offset, scale, frames[k], pixels);
  }

  generatePsfs(count, shifts);
  useFrames(count, masks);
  backProject(frames);

  int total = 0;
  for (int pass = 0; pass < maxIter; ++pass) {
    const int left = maxIter - total;
    const int made = solve(passIterations > 0 ? std::min(passIterations, left) : left);
    total += made;
    if (made == 0) {
      break;
    }
  }
  writeResult(offset, scale, out);
  return total;
}

template <class Mask>
void TvSolver<Mask>::requireCount(int count) const {
  if (count < 0 || count > size.frameCount) {
    MOVRA_THROW("Number of frames out of range");
  }
}

template <class Mask>
void TvSolver<Mask>::generatePsfs(int count, const cv::Point_<float>* shifts) {
  requireCount(count);
  psfs.moveTo(count, shifts);
}

template <class Mask>
void TvSolver<Mask>::useFrames(int count, Mask** masks) {
  requireCount(count);
  dataTerm->useFrames({count, &psfs, masks});
}

// b = sum_k B_k' M_k y_k, which is also the first estimate.
template <class Mask>
void TvSolver<Mask>::backProject(float** frames) {
  vectors.renewRhs(tvTerm.frozenAt());
  double sums[partialSums] = {};
  for (int i = 0; i < dataTerm->bandCount(); ++i) {
    dataTerm->backProject(i, frames, vectors.rhs());
    const auto band = dataTerm->band(i);
    solverKernels().addSquares(vectors.rhs(), band.begin * size.paddedWidth, band.end * size.paddedWidth, sums);
  }
  invRhsNorm2 = static_cast<float>(1.0 / combineSums(sums));
  steppedUpTo = size.paddedPixels();
  if (onesFrames.empty()) {
    vectors.startAtRhs();
  } else {
    normaliseStart();
  }
}

template <class Mask>
void TvSolver<Mask>::normaliseStart() {
  constexpr float leastWeight = 0.05f;  // of a pixel that hardly a frame has seen
  float* const weights = vectors.directionImage();
  for (int i = 0; i < dataTerm->bandCount(); ++i) {
    dataTerm->backProject(i, onesFrames.data(), weights);
  }
  float* const x = vectors.startElsewhere();
  for (int i = 0; i < size.paddedPixels(); ++i) {
    x[i] = vectors.rhs()[i] / std::max(weights[i], leastWeight);
  }
}

template <class Mask>
int TvSolver<Mask>::conjugateGradients(int count, Mask** masks, int maxIterations) {
  useFrames(count, masks);
  const int made = solve(maxIterations);
  stepUpTo(size.paddedPixels());
  return made;
}

template <class Mask>
int TvSolver<Mask>::solve(int maxIterations) {
  computeL();

  // r = b - A x, p = r
  float* const r = vectors.residual();
  float sums[partialSums] = {};
  applySystem(
      vectors.estimate(), r, [&](int end) { stepUpTo(end); },
      [&](int begin, int end) { solverKernels().startResidual(vectors.rhs(), r, begin, end, sums); });
  residualNorm2 = combineSums(sums);
  vectors.startAlongResidual();
  directionIsCurrent = true;

  // A norm that is not a number never passes: the solve then uses up its budget.
  if (relRes * relRes > residualNorm2 * invRhsNorm2) {
    return 0;
  }
  for (int i = 0; i < maxIterations; ++i) {
    if (iterate()) {
      return i + 1;
    }
  }
  return std::max(maxIterations, 0);
}

template <class Mask>
void TvSolver<Mask>::computeL() {
  tvTerm.freezeAt(vectors.estimate(), {tvCoefficient, epsilon, invEpsilon});
}

// out = A x, band by band. `before(end)` is called when the pixels of x up to `end` are needed, `after(begin, end)` when
// these pixels of the result are there.
template <class Mask>
template <class Before, class After>
void TvSolver<Mask>::applySystem(float* x, float* out, Before before, After after) {
  for (int b = 0; b < dataTerm->bandCount(); ++b) {
    const auto band = dataTerm->band(b);
    before(band.rowsRead * size.paddedWidth);
    tvTerm.applyRows(x, band.begin, band.end, out);
    dataTerm->addOperator(b, x, out);
    after(band.begin * size.paddedWidth, band.end * size.paddedWidth);
  }
}

template <class Mask>
void TvSolver<Mask>::gradient(float* x, int count, Mask** masks, float* out) {
  useFrames(count, masks);
  applySystem(
      x, out, [](int) {}, [](int, int) {});
}

template <class Mask>
bool TvSolver<Mask>::iteration(int count, Mask** masks) {
  useFrames(count, masks);
  const bool isDone = iterate();
  stepUpTo(size.paddedPixels());
  return isDone;
}

template <class Mask>
bool TvSolver<Mask>::iterate() {
  // p'q = 0 makes alpha infinite or not a number, and so x, r and all later norms. No test below is passed then, and the
  // image shows it.
  alpha = residualNorm2 / multiplyDirection();

  // x = x + alpha p, r = r - alpha q
  float sums[partialSums] = {};
  solverKernels().reduceResidual(alpha, vectors.directionImage(), vectors.residual(), vectors.nextResidual(), 0,
                                 size.paddedPixels(), sums);
  estimateBefore = vectors.estimate();
  steppedUpTo = 0;
  vectors.advance(vectors.nextEstimate(tvTerm.frozenAt()));
  const float newNorm2 = combineSums(sums);
  if (relRes * relRes > invRhsNorm2 * newNorm2) {
    return true;
  }
  beta = newNorm2 / residualNorm2;
  residualNorm2 = newNorm2;
  directionIsCurrent = false;
  return false;
}

// Makes the step that is due for the pixels up to `end`.
template <class Mask>
void TvSolver<Mask>::stepUpTo(int end) {
  if (steppedUpTo < end) {
    solverKernels().stepAlong(alpha, vectors.direction(), estimateBefore, vectors.estimate(), steppedUpTo, end);
    steppedUpTo = end;
  }
}

// q = A p and p'q, which is returned. What is due since the iteration before, the step of x and p = beta p + r, is made on
// the way: each part of p just before it is read, so that p goes through the cache once.
template <class Mask>
float TvSolver<Mask>::multiplyDirection() {
  const SolverKernels& kernels = solverKernels();
  float* const r = vectors.residual();
  float* const p = vectors.direction();
  float* const q = vectors.directionImage();

  int updatedUpTo = directionIsCurrent ? size.paddedPixels() : 0;
  const auto updateDirection = [&](int end) {
    stepUpTo(end);
    if (updatedUpTo < end) {
      kernels.updateDirection(beta, r, p, updatedUpTo, end);
      updatedUpTo = end;
    }
  };
  float sums[partialSums] = {};
  const auto addProducts = [&](int begin, int end) { kernels.addProducts(p, q, begin, end, sums); };
  applySystem(p, q, updateDirection, addProducts);
  directionIsCurrent = true;
  return combineSums(sums);
}

// The middle of the padded estimate in the frames' unit.
template <class Mask>
void TvSolver<Mask>::writeResult(float mean, float deviation, float* out) {
  // The high-resolution pixels of low-resolution pixel 0 lie around the middle of the PSF at padded pixel 0.
  const int margin = placement == PsfPlacement::anyFactor ? truncateToInt(size.factor) : (size.psfSize - 1) / 2;
  for (int y = 0; y < size.hrHeight; ++y) {
    stepUpTo((y + margin + 1) * size.paddedWidth);
    const float* row = vectors.estimate() + static_cast<std::ptrdiff_t>(y + margin) * size.paddedWidth + margin;
    for (int x = 0; x < size.hrWidth; ++x) {
      *out++ = deviation * row[x] + mean;
    }
  }
  stepUpTo(size.paddedPixels());
}

template class TvSolver<char>;
template class TvSolver<float>;

}  // namespace movra::vision::detail
