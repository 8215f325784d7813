// Definitions of TvMinimization, included by the sources that instantiate it.
#pragma once

#include <algorithm>
#include <cmath>
#include <new>

#include "movra/Exception.h"
#include "vision/superresolution/detail/base/ErrorFunction.h"
#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/solver/DataTerm.h"
#include "vision/superresolution/detail/solver/SolverKernels.h"
#include "vision/superresolution/detail/solver/SolverVectors.h"
#include "vision/superresolution/detail/solver/TvTerm.h"
#include "vision/superresolution/detail/solver/WholeImageDataTerm.h"
#include "vision/superresolution/shared/TvMinimization.h"

namespace movra::vision {

namespace detail {

/// What differs between the convolution classes, in the case that is right for any of them.
template <class Convolution, std::size_t zerosAfterArrays = 0>
struct WholeImageTraits {
  /// Zero floats after each work array.
  static constexpr std::size_t slack = zerosAfterArrays;

  /// Whether PSF and crop are placed right for any whole factor, not for factor 2 only, where both ways are the same.
  static constexpr bool servesAnyFactor = false;

  static std::unique_ptr<DataTerm<typename Convolution::Mask>> makeDataTerm(const ReconstructionSize& size,
                                                                            int /*frameCount*/) {
    return std::make_unique<WholeImageDataTerm<Convolution>>(size, slack);
  }
};

/// Specialised where that case is not the best.
template <class Convolution>
struct SolverTraits : WholeImageTraits<Convolution> {};

/// Size of the padded grid in one direction, that of the convolution classes. Up to the largest extent, the float products
/// and quotients of sizes do not lead beyond the frame.
inline int paddedExtent(int extent, int psfSize, float factor) {
  constexpr int largestExtent = 1 << 22;
  if (extent > largestExtent) {
    throw std::bad_array_new_length();
  }
  return checkedPaddedSize(scaledSize(extent, factor), psfSize);
}

inline void checkFrameCount(int count, int most) {
  if (count < 1 || count > most) {
    MOVRA_THROW("Number of frames out of range");
  }
}

/// The PSF of one direction moved by `shift` high-resolution pixels; a positive shift moves it to lower indices.
inline void movePsf(const float* base, int taps, float shift, float* moved) {
  if (taps < 1) {
    return;
  }
  if (shift < 0) {
    moved[0] = 0;
    for (int j = 1; j < taps; ++j) {
      moved[j] = base[j - 1] * -shift + base[j] * (1.0f + shift);
    }
  } else {
    for (int j = 0; j < taps - 1; ++j) {
      moved[j] = base[j] * (1.0f - shift) + base[j + 1] * shift;
    }
    moved[taps - 1] = 0;
  }
}

/// The same for shifts of any length.
inline void movePsfFar(const float* base, int taps, float shift, float* moved) {
  const int whole = std::clamp(truncateToInt(shift), -taps, taps);
  const float part = std::clamp(shift - static_cast<float>(whole), -1.0f, 1.0f);
  const auto tap = [&](int j) { return j >= 0 && j < taps ? base[j] : 0.0f; };
  for (int j = 0; j < taps; ++j) {
    const int k = j + whole;
    moved[j] = part < 0 ? tap(k - 1) * -part + tap(k) * (1.0f + part) : tap(k) * (1.0f - part) + tap(k + 1) * part;
  }
}

}  // namespace detail

template <class Convolution>
TvMinimization<Convolution>::TvMinimization(int width_, int height_, int frameCount_, float factor_)
    : width(detail::checkedSize(width_)),
      height(detail::checkedSize(height_)),
      frameSize(detail::checkedArea(height_, width_)),
      psfSize(detail::checkedSize(detail::truncateToInt(3.0f * factor_))),
      paddedWidth(detail::paddedExtent(width, psfSize, factor_)),
      paddedHeight(detail::paddedExtent(height, psfSize, factor_)),
      paddedSize(detail::checkedArea(paddedHeight, paddedWidth)),
      frameCount(detail::checkedSize(frameCount_)),
      factor(factor_),
      psf(new float[static_cast<std::size_t>(psfSize)]()),
      psfX(new float[static_cast<std::size_t>(detail::checkedArea(frameCount, psfSize))]()),
      psfY(new float[static_cast<std::size_t>(detail::checkedArea(frameCount, psfSize))]()),
      residualNorm2(0),
      invRhsNorm2(0) {
  using Traits = detail::SolverTraits<Convolution>;
  const detail::ReconstructionSize size{
      width,   height, detail::scaledSize(width, factor), detail::scaledSize(height, factor), paddedWidth, paddedHeight,
      psfSize, factor};
  dataTerm = Traits::makeDataTerm(size, frameCount);
  tvTerm = std::make_unique<detail::TvTerm>(paddedWidth, paddedHeight);
  vectors = std::make_unique<detail::SolverVectors>(static_cast<std::size_t>(paddedSize), Traits::slack);
  setPsfSigma(0.683f);
  setWeightTV(400.0f);
  setEpsilon(0.1f);
  setRelRes(0.007f);
  setMaxIter(8);
}

template <class Convolution>
TvMinimization<Convolution>::~TvMinimization() = default;

template <class Convolution>
void TvMinimization<Convolution>::setPsfSigma(float sigma) {
  psfSigma = sigma;
  std::fill_n(psf.get(), psfSize, 0.0f);
  const float inverseWidth = 1.0f / (sigma * 1.4142135f);
  const int middle = psfSize / 2;
  float sum = 0;
  // The centre lies between two taps, or on one.
  const bool onTap = detail::SolverTraits<Convolution>::servesAnyFactor && psfSize % 2 == 1;
  const float firstEdge = onTap ? -0.5f : 0.0f;
  const int mirror = onTap ? middle : middle - 1;
  // The mass of the Gaussian on each unit cell to the right of the centre, which is also that of its mirror image.
  for (int i = 0; static_cast<float>(i) < factor && i < psfSize; ++i) {
    const float from = (static_cast<float>(i) + firstEdge) * inverseWidth;
    const float upper = detail::approximateErf((static_cast<float>(i + 1) + firstEdge) * inverseWidth);
    const float lower = from == 0.0f ? 0.0f : detail::approximateErf(from);
    const float mass = 0.5f * (upper - lower);
    if (middle + i < psfSize && mirror - i >= 0) {
      psf[middle + i] = mass;
      psf[mirror - i] = mass;
    }
    sum += onTap && i == 0 ? mass : 2.0f * mass;
  }
  for (int i = 0; i < psfSize; ++i) {
    psf[i] /= sum;
  }
}

template <class Convolution>
void TvMinimization<Convolution>::setWeightTV(float weight) {
  weightTV = weight;
  tvCoefficient = -1.0f / weight;
}

template <class Convolution>
void TvMinimization<Convolution>::setEpsilon(float smallest) {
  epsilon = smallest;
  invEpsilon = 1.0f / smallest;
}

template <class Convolution>
int TvMinimization<Convolution>::minimize(int count, int refIndex, float** frames, cv::Point_<float>* shifts,
                                          Mask** masks, float* out) {
  detail::checkFrameCount(count, frameCount);
  if (refIndex < 0 || refIndex >= count) {
    MOVRA_THROW("The reference is not one of the frames");
  }
  const detail::SolverKernels& kernels = detail::solverKernels();

  double lanes[detail::sumLanes] = {};
  kernels.addValues(frames[refIndex], frameSize, lanes);
  const double mean = detail::combineLanes(lanes) / frameSize;
  std::fill_n(lanes, detail::sumLanes, 0.0);
  kernels.addSquaredDeviations(frames[refIndex], frameSize, mean, lanes);
  const double variance = detail::combineLanes(lanes) / frameSize;
  const float offset = static_cast<float>(mean);
  const float scale = std::sqrt(static_cast<float>(variance));
  for (int k = 0; k < count; ++k) {
    kernels.normalise(offset, scale, frames[k], frameSize);
  }

  generatePsfs(count, shifts);
  useFrames(count, masks);
  backProject(frames);

  int total = 0;
  for (int pass = 0; pass < maxIter; ++pass) {
    const int made = solve(maxIter - total);
    total += made;
    if (made == 0) {
      break;
    }
  }
  writeResult(offset, scale, out);
  return total;
}

template <class Convolution>
void TvMinimization<Convolution>::generatePsfs(int count, cv::Point_<float>* shifts) {
  detail::checkFrameCount(count, frameCount);
  const auto move = detail::SolverTraits<Convolution>::servesAnyFactor ? detail::movePsfFar : detail::movePsf;
  for (int k = 0; k < count; ++k) {
    const std::ptrdiff_t begin = static_cast<std::ptrdiff_t>(k) * psfSize;
    move(psf.get(), psfSize, shifts[k].x * factor, psfX.get() + begin);
    move(psf.get(), psfSize, shifts[k].y * factor, psfY.get() + begin);
  }
}

template <class Convolution>
void TvMinimization<Convolution>::useFrames(int count, Mask** masks) {
  detail::checkFrameCount(count, frameCount);
  dataTerm->useFrames({count, psfSize, psfX.get(), psfY.get(), masks});
}

// b = sum_k B_k' M_k y_k, which is also the first estimate.
template <class Convolution>
void TvMinimization<Convolution>::backProject(float** frames) {
  vectors->renewRhs(tvTerm->frozenAt());
  double lanes[detail::sumLanes] = {};
  for (int i = 0; i < dataTerm->bandCount(); ++i) {
    dataTerm->backProject(i, frames, vectors->rhs());
    const auto band = dataTerm->band(i);
    detail::solverKernels().addSquares(vectors->rhs(), band.begin * paddedWidth, band.end * paddedWidth, lanes);
  }
  invRhsNorm2 = static_cast<float>(1.0 / detail::combineLanes(lanes));
  vectors->startAtRhs();
}

template <class Convolution>
int TvMinimization<Convolution>::conjugateGradients(int count, Mask** masks, int maxIterations) {
  useFrames(count, masks);
  return solve(maxIterations);
}

template <class Convolution>
int TvMinimization<Convolution>::solve(int maxIterations) {
  computeL();

  // r = b - A x, p = r
  float* const r = vectors->residual();
  float lanes[detail::sumLanes] = {};
  applySystem(
      vectors->estimate(), r, [](int) {},
      [&](int begin, int end) { detail::solverKernels().startResidual(vectors->rhs(), r, begin, end, lanes); });
  residualNorm2 = detail::combineLanes(lanes);
  vectors->startAlongResidual();
  directionIsFinal = true;

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

template <class Convolution>
void TvMinimization<Convolution>::computeL() {
  tvTerm->freezeAt(vectors->estimate(), {tvCoefficient, epsilon, invEpsilon});
}

// out = A x, band by band. `before(end)` is called when the pixels of x up to `end` are needed, `after(begin, end)` when
// these pixels of the result are there.
template <class Convolution>
template <class Before, class After>
void TvMinimization<Convolution>::applySystem(float* x, float* out, Before before, After after) {
  for (int b = 0; b < dataTerm->bandCount(); ++b) {
    const auto band = dataTerm->band(b);
    before(band.rowsRead * paddedWidth);
    tvTerm->applyRows(x, band.begin, band.end, out);
    dataTerm->addOperator(b, x, out);
    after(band.begin * paddedWidth, band.end * paddedWidth);
  }
}

template <class Convolution>
void TvMinimization<Convolution>::gradient(float* x, int count, Mask** masks, float* out) {
  useFrames(count, masks);
  applySystem(
      x, out, [](int) {}, [](int, int) {});
}

template <class Convolution>
bool TvMinimization<Convolution>::iteration(int /*index*/, int count, Mask** masks) {
  useFrames(count, masks);
  return iterate();
}

template <class Convolution>
bool TvMinimization<Convolution>::iterate() {
  const detail::SolverKernels& kernels = detail::solverKernels();
  float* const r = vectors->residual();
  float* const p = vectors->direction();
  float* const q = vectors->directionImage();

  // p = beta p + r of the iteration before, just ahead of q = A p and p'q
  int turned = directionIsFinal ? paddedSize : 0;
  float lanes[detail::sumLanes] = {};
  applySystem(
      p, q,
      [&](int end) {
        if (turned < end) {
          kernels.turnDirection(beta, r, p, turned, end);
          turned = end;
        }
      },
      [&](int begin, int end) { kernels.addProducts(p, q, begin, end, lanes); });
  directionIsFinal = true;
  const float alpha = residualNorm2 / detail::combineLanes(lanes);

  // x = x + alpha p, r = r - alpha q
  std::fill_n(lanes, detail::sumLanes, 0.0f);
  float* const nextX = vectors->nextEstimate(tvTerm->frozenAt());
  kernels.stepAlong(alpha, p, q, vectors->estimate(), nextX, r, vectors->nextResidual(), 0, paddedSize, lanes);
  vectors->advance(nextX);
  const float newNorm2 = detail::combineLanes(lanes);
  if (relRes * relRes > invRhsNorm2 * newNorm2) {
    return true;
  }
  beta = newNorm2 / residualNorm2;
  residualNorm2 = newNorm2;
  directionIsFinal = false;
  return false;
}

// The middle of the padded estimate in the frames' unit.
template <class Convolution>
void TvMinimization<Convolution>::writeResult(float mean, float deviation, float* out) const {
  // The high-resolution pixels of low-resolution pixel 0 lie around the middle of the PSF at padded pixel 0.
  const int margin =
      detail::SolverTraits<Convolution>::servesAnyFactor ? detail::truncateToInt(factor) : (psfSize - 1) / 2;
  const int columns = detail::scaledSize(width, factor);
  const int rows = detail::scaledSize(height, factor);
  for (int y = 0; y < rows; ++y) {
    const float* row = vectors->estimate() + static_cast<std::ptrdiff_t>(y + margin) * paddedWidth + margin;
    for (int x = 0; x < columns; ++x) {
      *out++ = deviation * row[x] + mean;
    }
  }
}

}  // namespace movra::vision
