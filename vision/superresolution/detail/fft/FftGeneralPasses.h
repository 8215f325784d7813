#pragma once

#include "vision/superresolution/detail/fft/FftValue.h"

// Passes of any other radix, with the same arrangement as those of FftSmallPasses.h. The radix is odd and,
// since the factors 4 and 2 come first, so is ido in real passes.
//
// Parts j and radix - j share their rotations up to the sign of the sine. With the folded parts
//   s[j] = x[j] + x[radix - j] and d[j] = x[j] - x[radix - j]
// and the sums
//   A[q] = x[0] + sum over 1 <= j < radix / 2 of cos(2 pi j q / radix) s[j],
//   B[q] =        sum over 1 <= j < radix / 2 of sin(2 pi j q / radix) d[j],
// result q is A[q] -+ i B[q] and result radix - q is A[q] +- i B[q], the upper signs forward.

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

/// A[q] and B[q] for one value of each block; see generalSums.
template <typename V>
inline Complex<V> generalSum(ptrdiff_t n, ptrdiff_t radix, ptrdiff_t run, ptrdiff_t q, const float* in,
                             const float* roots) {
  V a = get<V>(in);
  V b{};
  const float* s = in;
  const float* d = in + radix * run;
  ptrdiff_t t = 0;
  for (ptrdiff_t j = 1; 2 * j < radix; ++j) {
    s += run;
    d -= run;
    t += t + q < radix ? q : q - radix;
    const bool upper = 2 * t > radix;
    const Complex<float> root = rootAt(roots, (upper ? radix - t : t) * (n / radix));
    a += root.re * get<V>(s);
    b += (upper ? -root.im : root.im) * get<V>(d);
  }
  return {a, b};
}

/// A[q] and B[q] of whole runs of floats: block 0 of `in` holds x[0], block j s[j] and block radix - j d[j];
/// blocks q and radix - q of `out` get A[q] and B[q].
void generalSums(ptrdiff_t n, ptrdiff_t radix, ptrdiff_t run, const float* __restrict in, float* __restrict out,
                 const float* roots) {
  const ptrdiff_t vectors = run - run % width<Vector>;
  for (ptrdiff_t f = 0; f < run; ++f) {
    out[f] = in[f];
  }
  for (ptrdiff_t j = 1; 2 * j < radix; ++j) {
    for (ptrdiff_t f = 0; f < run; ++f) {
      out[f] += in[j * run + f];
    }
  }
  for (ptrdiff_t q = 1; 2 * q < radix; ++q) {
    float* a = out + q * run;
    float* b = out + (radix - q) * run;
    for (ptrdiff_t f = 0; f < vectors; f += width<Vector>) {
      const Complex<Vector> sums = generalSum<Vector>(n, radix, run, q, in + f, roots);
      put(a + f, sums.re);
      put(b + f, sums.im);
    }
    for (ptrdiff_t f = vectors; f < run; ++f) {
      const Complex<float> sums = generalSum<float>(n, radix, run, q, in + f, roots);
      a[f] = sums.re;
      b[f] = sums.im;
    }
  }
}

/// Results q and radix - q of one element from A[q] at `low` and B[q] at `high`, in their place, each turned
/// by its root.
template <Direction D, typename V>
inline void unfold(float* low, float* high, Complex<float> lowRoot, Complex<float> highRoot) {
  for (int lane = 0; lane < lanes<V>; lane += width<V>) {
    const Complex<V> middle = load<V>(low + lane);
    const Complex<V> side = quarterTurn<D>(load<V>(high + lane));
    store(low + lane, turn<D>(lowRoot, middle + side));
    store(high + lane, turn<D>(highRoot, middle - side));
  }
}

/// The result is in `c`.
template <Direction D, typename V>
void complexGeneralPass(ptrdiff_t radix, ptrdiff_t ido, ptrdiff_t l1, float* __restrict c, float* __restrict scratch,
                        const float* roots) {
  constexpr ptrdiff_t size = 2 * lanes<V>;
  const ptrdiff_t line = ido * size;
  const ptrdiff_t block = l1 * line;
  for (ptrdiff_t k = 0; k < l1; ++k) {
    const float* in = c + k * radix * line;
    float* out = scratch + k * line;
    for (ptrdiff_t f = 0; f < line; ++f) {
      out[f] = in[f];
    }
    for (ptrdiff_t j = 1; 2 * j < radix; ++j) {
      for (ptrdiff_t f = 0; f < line; ++f) {
        const float low = in[j * line + f];
        const float high = in[(radix - j) * line + f];
        out[j * block + f] = low + high;
        out[(radix - j) * block + f] = low - high;
      }
    }
  }
  generalSums(l1 * radix * ido, radix, block, scratch, c, roots);
  for (ptrdiff_t q = 1; 2 * q < radix; ++q) {
    for (ptrdiff_t k = 0; k < l1; ++k) {
      float* low = c + q * block + k * line;
      float* high = c + (radix - q) * block + k * line;
      unfold<D, V>(low, high, {1.0f, 0.0f}, {1.0f, 0.0f});
      for (ptrdiff_t i = 1; i < ido; ++i) {
        unfold<D, V>(low + i * size, high + i * size, rootAt(roots, q * i * l1), rootAt(roots, (radix - q) * i * l1));
      }
    }
  }
}

// Rows of real passes are packed: frequency 0, then the real and the imaginary part of frequency p = 1, 2, ... A result row
// with an odd number is stored backwards: frequency p there belongs to p counted from the end.

/// Place of frequency p in a packed row.
template <typename V>
constexpr ptrdiff_t frequencyAt(ptrdiff_t p) {
  return (2 * p - 1) * lanes<V>;
}

/// Place of frequency p in a row of `row` floats that is stored backwards; p = 0 is its last value.
template <typename V>
constexpr ptrdiff_t frequencyFromEnd(ptrdiff_t row, ptrdiff_t p) {
  return row - (p == 0 ? 1 : 2 * p + 1) * lanes<V>;
}

/// x, y -> x + y, x - y, in place.
template <typename V>
inline void foldReal(float* x, float* y) {
  for (int lane = 0; lane < lanes<V>; lane += width<V>) {
    const V a = get<V>(x + lane);
    const V b = get<V>(y + lane);
    put(x + lane, a + b);
    put(y + lane, a - b);
  }
}

/// The same for complex values, each turned forward by its root first.
template <typename V>
inline void foldTurned(float* x, float* y, Complex<float> rootOfX, Complex<float> rootOfY) {
  for (int lane = 0; lane < lanes<V>; lane += width<V>) {
    const Complex<V> a = turn<Direction::forward>(rootOfX, load<V>(x + lane));
    const Complex<V> b = turn<Direction::forward>(rootOfY, load<V>(y + lane));
    store(x + lane, a + b);
    store(y + lane, a - b);
  }
}

/// Results q and radix - q of one frequency from A[q] and B[q]; the second one is stored as its conjugate.
template <typename V>
inline void unfoldMirrored(const float* a, const float* b, float* straight, float* mirrored) {
  for (int lane = 0; lane < lanes<V>; lane += width<V>) {
    const Complex<V> middle = load<V>(a + lane);
    const Complex<V> side = quarterTurn<Direction::forward>(load<V>(b + lane));
    store(straight + lane, middle + side);
    store(mirrored + lane, conjugate(middle - side));
  }
}

/// The reverse: s and d of one frequency.
template <typename V>
inline void foldMirrored(const float* straight, const float* mirrored, float* s, float* d) {
  for (int lane = 0; lane < lanes<V>; lane += width<V>) {
    const Complex<V> x = load<V>(straight + lane);
    const Complex<V> y = conjugate(load<V>(mirrored + lane));
    store(s + lane, x + y);
    store(d + lane, x - y);
  }
}

/// The result is in `r`.
template <typename V>
void realForwardGeneralPass(ptrdiff_t radix, ptrdiff_t ido, ptrdiff_t l1, float* __restrict r,
                            float* __restrict scratch, const float* roots) {
  const ptrdiff_t row = ido * lanes<V>;
  const ptrdiff_t block = l1 * row;
  for (ptrdiff_t j = 1; 2 * j < radix; ++j) {
    for (ptrdiff_t k = 0; k < l1; ++k) {
      float* low = r + j * block + k * row;
      float* high = r + (radix - j) * block + k * row;
      foldReal<V>(low, high);
      for (ptrdiff_t p = 1; 2 * p < ido; ++p) {
        const ptrdiff_t at = frequencyAt<V>(p);
        foldTurned<V>(low + at, high + at, rootAt(roots, j * p * l1), rootAt(roots, (radix - j) * p * l1));
      }
    }
  }
  generalSums(l1 * radix * ido, radix, block, r, scratch, roots);
  for (ptrdiff_t k = 0; k < l1; ++k) {
    const float* in = scratch + k * row;
    float* out = r + k * radix * row;
    for (ptrdiff_t f = 0; f < row; ++f) {
      out[f] = in[f];
    }
    for (ptrdiff_t q = 1; 2 * q < radix; ++q) {
      const float* a = in + q * block;
      const float* b = in + (radix - q) * block;
      float* straight = out + 2 * q * row;
      float* mirrored = straight - row;
      for (int lane = 0; lane < lanes<V>; lane += width<V>) {
        put(mirrored + frequencyFromEnd<V>(row, 0) + lane, get<V>(a + lane));
        put(straight + lane, -get<V>(b + lane));
      }
      for (ptrdiff_t p = 1; 2 * p < ido; ++p) {
        const ptrdiff_t at = frequencyAt<V>(p);
        unfoldMirrored<V>(a + at, b + at, straight + at, mirrored + frequencyFromEnd<V>(row, p));
      }
    }
  }
}

/// The result is in `r`.
template <typename V>
void realBackwardGeneralPass(ptrdiff_t radix, ptrdiff_t ido, ptrdiff_t l1, float* __restrict r,
                             float* __restrict scratch, const float* roots) {
  const ptrdiff_t row = ido * lanes<V>;
  const ptrdiff_t block = l1 * row;
  for (ptrdiff_t k = 0; k < l1; ++k) {
    const float* in = r + k * radix * row;
    float* out = scratch + k * row;
    for (ptrdiff_t f = 0; f < row; ++f) {
      out[f] = in[f];
    }
    for (ptrdiff_t q = 1; 2 * q < radix; ++q) {
      const float* straight = in + 2 * q * row;
      const float* mirrored = straight - row;
      float* s = out + q * block;
      float* d = out + (radix - q) * block;
      // Frequency 0 of the parts: x and its conjugate make a real sum and an imaginary difference.
      for (int lane = 0; lane < lanes<V>; lane += width<V>) {
        put(s + lane, 2.0f * get<V>(mirrored + frequencyFromEnd<V>(row, 0) + lane));
        put(d + lane, 2.0f * get<V>(straight + lane));
      }
      for (ptrdiff_t p = 1; 2 * p < ido; ++p) {
        const ptrdiff_t at = frequencyAt<V>(p);
        foldMirrored<V>(straight + at, mirrored + frequencyFromEnd<V>(row, p), s + at, d + at);
      }
    }
  }
  generalSums(l1 * radix * ido, radix, block, scratch, r, roots);
  for (ptrdiff_t j = 1; 2 * j < radix; ++j) {
    for (ptrdiff_t k = 0; k < l1; ++k) {
      float* low = r + j * block + k * row;
      float* high = r + (radix - j) * block + k * row;
      for (int lane = 0; lane < lanes<V>; lane += width<V>) {
        const V middle = get<V>(low + lane);
        const V side = get<V>(high + lane);
        put(low + lane, middle - side);
        put(high + lane, middle + side);
      }
      for (ptrdiff_t p = 1; 2 * p < ido; ++p) {
        const ptrdiff_t at = frequencyAt<V>(p);
        unfold<Direction::backward, V>(low + at, high + at, rootAt(roots, j * p * l1),
                                       rootAt(roots, (radix - j) * p * l1));
      }
    }
  }
}

}  // namespace

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
