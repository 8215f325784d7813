#pragma once

#include <cstddef>

#include "vision/superresolution/detail/fft/FftKernels.h"

/// One-dimensional discrete Fourier transforms of any length n >= 1 in single precision: mixed radix (4, 2, 3, 5 and any
/// other prime; the last costs its square), unnormalised, so that a transform forward and backward multiplies by n.
///
/// The method is P. N. Swarztrauber's and C. Temperton's; the trigonometric tables are computed in double precision and
/// rounded once, so that large prime factors cost no accuracy and no bit depends on the float functions of a library. The
/// error relative to the result is near 1e-7, 4e-7 for a prime of a thousand.
///
/// A prepare call fills the tables of one length, `wsave` and `ifac`; the transforms only read them, apart from the first
/// half of wsave, which is their scratch space. No static state: calls with different wsave may run at once. Nothing is
/// allocated.
namespace movra::vision::detail {

/// Prepares real transforms of length n.
/// @param wsave 2 n floats
/// @param ifac  15 ints: n, the number of its factors, the factors
/// @throws movra::Exception if n < 1, or if n has more than 13 factors (the first is 2 * 3^13, more than 3 million)
void prepareRealTransform(int n, float* wsave, int* ifac);

/// Prepares complex transforms of length n.
/// @param wsave 4 n floats
/// @param ifac  15 ints, as above
/// @throws movra::Exception as above
void prepareComplexTransform(int n, float* wsave, int* ifac);

/// Ints of `ifac`.
constexpr int factorTableSize = 15;

/// Forward transform of n real values in place. The result is packed: r0, Re r1, Im r1, Re r2, Im r2, ..., for even n
/// ending with the real r(n/2), where rk is the sum over t of r[t] exp(-2 pi i k t / n).
void realForward(int n, float* r, float* wsave, const int* ifac);

/// Backward transform in place: from the packed order to n real values.
void realBackward(int n, float* r, float* wsave, const int* ifac);

/// Forward transform (exponent -2 pi i k t / n) of n complex values (real, imaginary) in place, and the backward one
/// (exponent +2 pi i k t / n).
void complexForward(int n, float* c, float* wsave, const int* ifac);
void complexBackward(int n, float* c, float* wsave, const int* ifac);

/// The same on fftBatchWidth sequences at once; each gets the bits of its own transform. They lie side by side, value v of
/// sequence l at [v * fftBatchWidth + l], where the values of a complex sequence are re, im, re, im, ...
/// @param scratch as many floats as the batch
/// @return where the result is: the batch or scratch; the other one is overwritten
float* realForwardBatch(int n, float* r, float* scratch, const float* wsave, const int* ifac);
float* realBackwardBatch(int n, float* r, float* scratch, const float* wsave, const int* ifac);
float* complexForwardBatch(int n, float* c, float* scratch, const float* wsave, const int* ifac);
float* complexBackwardBatch(int n, float* c, float* scratch, const float* wsave, const int* ifac);

}  // namespace movra::vision::detail
