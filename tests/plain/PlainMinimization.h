#pragma once

#include <vector>

#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/reference/SuperResolutionConvolution.h"

namespace movra::test {

/// The total-variation operator as plain loops over a dense image: weights stored, their diagonal too.
struct PlainTv {
  int width;
  int height;
  Image right = Image(size()), down = Image(size()), downLeft = Image(size()), downRight = Image(size());
  Image centre = Image(size());

  std::size_t size() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }

  /// Weights coefficient / clamp(|difference|), at least epsilon and at most 1 / epsilon, between the neighbours of x.
  void freezeAt(const float* x, float coefficient, float epsilon);

  /// out = L x
  void apply(const float* x, float* out) const;

 private:
  template <class Value>
  float sumOverNeighbours(std::ptrdiff_t i, float sum, Value value) const;
};

/// The minimisation as plain loops over whole images, with the plain-loop operators: what the production class has to
/// equal bit for bit, and what its speed is measured against. Factor 2.
///
/// Sums over images have the documented shape: partial sum i mod 16, combined in halves.
class PlainMinimization {
 public:
  float psfSigma = 0.683f;
  float weightTV = 400.0f;
  float epsilon = 0.1f;
  float relRes = 0.007f;
  int maxIter = 8;

  PlainMinimization(int width, int height, int frameCount);

  /// Arguments and result of TvMinimization::minimize.
  int minimize(int frameCount, int refIndex, float** frames, Shift* shifts, char** masks, float* out);

  /// out = A x, with the weights of the last solve and the kernels of the last call.
  void gradient(float* x, int frameCount, char** masks, float* out);

  int paddedSize() const { return static_cast<int>(tv.size()); }

  /// Applications of A in the last reconstruction.
  int applications = 0;

 private:
  void addTranspose(float* image, int k, char* mask, float* out);
  int conjugateGradients(int frameCount, char** masks, int maxIterations);
  bool iteration(int frameCount, char** masks);

  int width;
  int height;
  PlainTv tv;
  vision::SuperResolutionConvolution convolution;
  std::vector<std::vector<float>> psfX, psfY;
  Image lowResBuffer, frameBuffer, rhs, estimate, residual, direction, directionImage;
  float residualNorm2 = 0;
  float invRhsNorm2 = 0;
};

}  // namespace movra::test
