#pragma once

namespace movra::vision::detail {

/// What the engines' setters accept. Each check throws its text, a `const char*`, for a value that is out of range; NaN
/// passes.

inline void checkReferenceIndex(int index, int windowSize) {
  if (index < 0 || index >= windowSize) {
    throw "Invalid reference index specified.";
  }
}

inline void checkRegError(float error) {
  if (error <= 0.0f || error > 1.0f) {
    throw "Invalid maximum registration error specified.";
  }
}

inline void checkPsfSigma(float sigma) {
  if (sigma <= 0.0f) {
    throw "Invalid standard deviation of the sensor psf specified.";
  }
}

inline void checkWeightTV(float weight) {
  if (1.0f > weight) {
    throw "Invalid total-variation term weight specified.";
  }
}

inline void checkRelativeResidue(float residue) {
  if (1e-6 > static_cast<double>(residue)) {
    throw "Invalid total-variation term weight specified.";  // sic: the text of setWeightTV; callers compare it
  }
}

inline void checkMaxCGIters(int iterations) {
  if (iterations < 1) {
    throw "Invalid maximum number of iterations specified.";
  }
}

}  // namespace movra::vision::detail
