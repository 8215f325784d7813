#include "vision/superresolution/shared/TvMinimization.h"

#include <utility>

#include "movra/Exception.h"
#include "vision/superresolution/detail/solver/TvSolver.h"

namespace movra::vision {

template <class MaskElement>
TvMinimization<MaskElement>::TvMinimization(std::unique_ptr<detail::TvSolver<MaskElement>> solver_)
    : solver(std::move(solver_)) {
  setPsfSigma(0.683f);
  setWeightTV(400.0f);
  setEpsilon(0.1f);
  setRelRes(0.007f);
  setMaxIter(8);
}

template <class MaskElement>
TvMinimization<MaskElement>::~TvMinimization() = default;

template <class MaskElement>
float TvMinimization<MaskElement>::getPsfSigma() const {
  return solver->psfs.getSigma();
}

template <class MaskElement>
void TvMinimization<MaskElement>::setPsfSigma(float sigma) {
  solver->psfs.setSigma(sigma);
}

template <class MaskElement>
float TvMinimization<MaskElement>::getWeightTV() const {
  return solver->getWeightTV();
}

template <class MaskElement>
void TvMinimization<MaskElement>::setWeightTV(float weight) {
  solver->setWeightTV(weight);
}

template <class MaskElement>
float TvMinimization<MaskElement>::getEpsilon() const {
  return solver->getEpsilon();
}

template <class MaskElement>
void TvMinimization<MaskElement>::setEpsilon(float smallest) {
  solver->setEpsilon(smallest);
}

template <class MaskElement>
float TvMinimization<MaskElement>::getRelRes() const {
  return solver->relRes;
}

template <class MaskElement>
void TvMinimization<MaskElement>::setRelRes(float residue) {
  solver->relRes = residue;
}

template <class MaskElement>
int TvMinimization<MaskElement>::getMaxIter() const {
  return solver->maxIter;
}

template <class MaskElement>
void TvMinimization<MaskElement>::setMaxIter(int iterations) {
  solver->maxIter = iterations;
}

template <class MaskElement>
int TvMinimization<MaskElement>::minimize(int frameCount, int refIndex, float** frames, cv::Point_<float>* shifts,
                                          Mask** masks, float* out) {
  return solver->minimize(frameCount, refIndex, frames, shifts, masks, out);
}

template <class MaskElement>
void TvMinimization<MaskElement>::generatePsfs(int frameCount, cv::Point_<float>* shifts) {
  solver->generatePsfs(frameCount, shifts);
}

template <class MaskElement>
int TvMinimization<MaskElement>::conjugateGradients(int frameCount, Mask** masks, int maxIterations) {
  return solver->conjugateGradients(frameCount, masks, maxIterations);
}

template <class MaskElement>
void TvMinimization<MaskElement>::computeL() {
  solver->computeL();
}

template <class MaskElement>
void TvMinimization<MaskElement>::gradient(float* x, int frameCount, Mask** masks, float* out) {
  solver->gradient(x, frameCount, masks, out);
}

template <class MaskElement>
bool TvMinimization<MaskElement>::iteration(int /*index*/, int frameCount, Mask** masks) {
  return solver->iteration(frameCount, masks);
}

template class TvMinimization<char>;
template class TvMinimization<float>;

}  // namespace movra::vision
