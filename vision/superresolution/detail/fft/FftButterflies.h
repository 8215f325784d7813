#pragma once

#include "vision/superresolution/detail/fft/FftValue.h"

// Discrete Fourier transforms of the lengths 2, 3, 4 and 5, in place, on values held in registers.

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

constexpr float sin60 = 0.866025403784438647f;
constexpr float cos72 = 0.309016994374947424f;
constexpr float sin72 = 0.951056516295153572f;
constexpr float cos144 = -0.809016994374947424f;
constexpr float sin144 = 0.587785252292473129f;

// Complex transforms: x[q] becomes the sum over j of x[j] exp(-+2 pi i j q / R), minus forward.

template <Direction D, typename Value>
inline void complexDft(Complex<Value> (&x)[2]) {
  const Complex<Value> difference = x[0] - x[1];
  x[0] = x[0] + x[1];
  x[1] = difference;
}

template <Direction D, typename Value>
inline void complexDft(Complex<Value> (&x)[3]) {
  const Complex<Value> sum = x[1] + x[2];
  const Complex<Value> side = quarterTurn<D>(sin60 * (x[1] - x[2]));
  const Complex<Value> middle = x[0] - 0.5f * sum;
  x[0] = x[0] + sum;
  x[1] = middle + side;
  x[2] = middle - side;
}

template <Direction D, typename Value>
inline void complexDft(Complex<Value> (&x)[4]) {
  const Complex<Value> evenSum = x[0] + x[2];
  const Complex<Value> evenDifference = x[0] - x[2];
  const Complex<Value> oddSum = x[1] + x[3];
  const Complex<Value> side = quarterTurn<D>(x[1] - x[3]);
  x[0] = evenSum + oddSum;
  x[1] = evenDifference + side;
  x[2] = evenSum - oddSum;
  x[3] = evenDifference - side;
}

template <Direction D, typename Value>
inline void complexDft(Complex<Value> (&x)[5]) {
  const Complex<Value> outerSum = x[1] + x[4];
  const Complex<Value> outerDifference = x[1] - x[4];
  const Complex<Value> innerSum = x[2] + x[3];
  const Complex<Value> innerDifference = x[2] - x[3];
  const Complex<Value> middle1 = x[0] + cos72 * outerSum + cos144 * innerSum;
  const Complex<Value> middle2 = x[0] + cos144 * outerSum + cos72 * innerSum;
  const Complex<Value> side1 = quarterTurn<D>(sin72 * outerDifference + sin144 * innerDifference);
  const Complex<Value> side2 = quarterTurn<D>(sin144 * outerDifference - sin72 * innerDifference);
  x[0] = x[0] + outerSum + innerSum;
  x[1] = middle1 + side1;
  x[2] = middle2 + side2;
  x[3] = middle2 - side2;
  x[4] = middle1 - side1;
}

// Real sequence to its packed half spectrum (z0, Re z1, Im z1, ..., for even lengths the last real value).

template <typename Value>
inline void realDft(Value (&x)[2]) {
  const Value difference = x[0] - x[1];
  x[0] = x[0] + x[1];
  x[1] = difference;
}

template <typename Value>
inline void realDft(Value (&x)[3]) {
  const Value sum = x[1] + x[2];
  const Value difference = x[2] - x[1];
  x[1] = x[0] - 0.5f * sum;
  x[0] = x[0] + sum;
  x[2] = sin60 * difference;
}

template <typename Value>
inline void realDft(Value (&x)[4]) {
  const Value evenSum = x[0] + x[2];
  const Value evenDifference = x[0] - x[2];
  const Value oddSum = x[1] + x[3];
  const Value oddDifference = x[3] - x[1];
  x[0] = evenSum + oddSum;
  x[1] = evenDifference;
  x[2] = oddDifference;
  x[3] = evenSum - oddSum;
}

template <typename Value>
inline void realDft(Value (&x)[5]) {
  const Value outerSum = x[1] + x[4];
  const Value outerDifference = x[4] - x[1];
  const Value innerSum = x[2] + x[3];
  const Value innerDifference = x[3] - x[2];
  x[1] = x[0] + cos72 * outerSum + cos144 * innerSum;
  x[2] = sin72 * outerDifference + sin144 * innerDifference;
  x[3] = x[0] + cos144 * outerSum + cos72 * innerSum;
  x[4] = sin144 * outerDifference - sin72 * innerDifference;
  x[0] = x[0] + outerSum + innerSum;
}

// Packed half spectrum to its real sequence, the transform backward.

template <typename Value>
inline void realInverseDft(Value (&z)[2]) {
  realDft(z);
}

template <typename Value>
inline void realInverseDft(Value (&z)[3]) {
  const Value middle = z[0] - z[1];
  const Value side = 2.0f * sin60 * z[2];
  z[0] = z[0] + 2.0f * z[1];
  z[1] = middle - side;
  z[2] = middle + side;
}

template <typename Value>
inline void realInverseDft(Value (&z)[4]) {
  const Value evenSum = z[0] + z[3];
  const Value evenDifference = z[0] - z[3];
  const Value oddSum = 2.0f * z[1];
  const Value side = 2.0f * z[2];
  z[0] = evenSum + oddSum;
  z[1] = evenDifference - side;
  z[2] = evenSum - oddSum;
  z[3] = evenDifference + side;
}

template <typename Value>
inline void realInverseDft(Value (&z)[5]) {
  const Value re1 = 2.0f * z[1];
  const Value im1 = 2.0f * z[2];
  const Value re2 = 2.0f * z[3];
  const Value im2 = 2.0f * z[4];
  const Value middle1 = z[0] + cos72 * re1 + cos144 * re2;
  const Value middle2 = z[0] + cos144 * re1 + cos72 * re2;
  const Value side1 = sin72 * im1 + sin144 * im2;
  const Value side2 = sin144 * im1 - sin72 * im2;
  z[0] = z[0] + re1 + re2;
  z[1] = middle1 - side1;
  z[2] = middle2 - side2;
  z[3] = middle2 + side2;
  z[4] = middle1 + side1;
}

}  // namespace

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
