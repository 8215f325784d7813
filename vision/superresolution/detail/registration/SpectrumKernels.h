#pragma once

namespace movra::vision::detail {

/// Kernels of the phase correlation, on spectra of `bins` complex values, each (real, imaginary).
struct SpectrumKernels {
  /// out = a conj(b), by elements.
  void (*multiplyByConjugate)(const float* a, const float* b, int bins, float* out);

  /// Normalised cross-power spectrum: out = b conj(a) / sqrt(|a|^2 |b|^2), by elements. Where a or b is 0, so is the
  /// divisor, and the result is NaN.
  void (*crossPower)(const float* a, const float* b, int bins, float* out);

  /// The largest of `count` values, at least one. NaN among them is passed over, but a first value that is NaN is the
  /// result.
  float (*largest)(const float* values, int count);
};

/// The kernels of the active instruction set.
const SpectrumKernels& spectrumKernels();

}  // namespace movra::vision::detail
