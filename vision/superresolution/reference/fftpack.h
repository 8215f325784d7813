#pragma once

/// FFTPACK's names and conventions for the transforms of detail/fft/MixedRadix.h, which has the details: any length
/// n >= 1, unnormalised, packed real order, tables of one length in `wsave` and `ifac`.
namespace movra::vision::fftpack {

/// Prepares real transforms of length n: wsave has 2 n floats, ifac 15 ints.
/// @throws movra::Exception if n < 1, or if n has more than 13 factors
void rffti(int n, float* wsave, int* ifac);

/// Real transform in place, forward to r0, Re r1, Im r1, ... and backward.
void rfftf(int n, float* r, float* wsave, int* ifac);
void rfftb(int n, float* r, float* wsave, int* ifac);

/// Prepares complex transforms of length n: wsave has 4 n floats, ifac 15 ints.
/// @throws movra::Exception as rffti
void cffti(int n, float* wsave, int* ifac);

/// Complex transform of n values (real, imaginary) in place, forward (exponent -2 pi i k t / n) and backward.
void cfftf(int n, float* c, float* wsave, int* ifac);
void cfftb(int n, float* c, float* wsave, int* ifac);

}  // namespace movra::vision::fftpack
