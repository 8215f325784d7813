#pragma once

#include "vision/superresolution/detail/fft/FftButterflies.h"

// Passes of the radices 2, 3, 4 and 5. A pass takes l1 groups of radix * ido elements from one array to the
// other. Complex and backward real passes read element i of part j of group k at i + ido (j + radix k) and
// write i + ido (k + l1 j); forward real passes undo the backward ones and go the other way.
//
// Sequences lie side by side in lanes: an element of a real sequence is one float per lane, an element of a
// complex one its real parts and then its imaginary parts. The loops over the lanes go by whole values, and
// what a lane gets does not depend on how many there are.
//
// In a real pass, the ido elements of a part are its packed half spectrum: frequency p is at 2p - 1 and 2p.
// Of the radix * ido elements that make up a group, frequency p + ido q lies in row 2q; the upper half of the
// frequencies is stored mirrored, as the conjugate at ido q - p in row 2q - 1.

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

/// root[j] = exp(2 pi i j t / n) for j > 0.
template <int R>
inline void loadRoots(const float* roots, ptrdiff_t t, Complex<float> (&root)[R]) {
  for (int j = 1; j < R; ++j) {
    root[j] = rootAt(roots, j * t);
  }
}

template <int R, Direction D, typename V>
void complexPass(ptrdiff_t ido, ptrdiff_t l1, const float* __restrict in, float* __restrict out, const float* roots) {
  constexpr ptrdiff_t size = 2 * lanes<V>;
  const ptrdiff_t inStep = ido * size;
  const ptrdiff_t outStep = ido * l1 * size;
  for (ptrdiff_t k = 0; k < l1; ++k) {
    const float* a = in + k * R * inStep;
    float* b = out + k * inStep;
    for (int lane = 0; lane < lanes<V>; lane += width<V>) {
      Complex<V> x[R];
      for (int j = 0; j < R; ++j) {
        x[j] = load<V>(a + j * inStep + lane);
      }
      complexDft<D>(x);
      for (int q = 0; q < R; ++q) {
        store(b + q * outStep + lane, x[q]);
      }
    }
    for (ptrdiff_t i = 1; i < ido; ++i) {
      a += size;
      b += size;
      Complex<float> root[R];
      loadRoots(roots, i * l1, root);
      for (int lane = 0; lane < lanes<V>; lane += width<V>) {
        Complex<V> x[R];
        for (int j = 0; j < R; ++j) {
          x[j] = load<V>(a + j * inStep + lane);
        }
        complexDft<D>(x);
        store(b + lane, x[0]);
        for (int q = 1; q < R; ++q) {
          store(b + q * outStep + lane, turn<D>(root[q], x[q]));
        }
      }
    }
  }
}

template <int R, typename V>
void realForwardPass(ptrdiff_t ido, ptrdiff_t l1, const float* __restrict in, float* __restrict out,
                     const float* roots) {
  const ptrdiff_t row = ido * lanes<V>;
  const ptrdiff_t last = row - lanes<V>;
  const ptrdiff_t inStep = l1 * row;
  for (ptrdiff_t k = 0; k < l1; ++k) {
    const float* a = in + k * row;
    float* b = out + k * R * row;
    for (int lane = 0; lane < lanes<V>; lane += width<V>) {
      V x[R];
      for (int j = 0; j < R; ++j) {
        x[j] = get<V>(a + j * inStep + lane);
      }
      realDft(x);
      for (int q = 0; q < R; ++q) {
        put(b + q * row + (q % 2) * last + lane, x[q]);
      }
    }
    for (ptrdiff_t p = 1; 2 * p < ido; ++p) {
      Complex<float> root[R];
      loadRoots(roots, p * l1, root);
      const float* from = a + (2 * p - 1) * lanes<V>;
      float* to = b + (2 * p - 1) * lanes<V>;
      float* mirrored = b + row - (2 * p + 1) * lanes<V>;
      for (int lane = 0; lane < lanes<V>; lane += width<V>) {
        Complex<V> x[R];
        x[0] = load<V>(from + lane);
        for (int j = 1; j < R; ++j) {
          x[j] = turn<Direction::forward>(root[j], load<V>(from + j * inStep + lane));
        }
        complexDft<Direction::forward>(x);
        for (int q = 0; 2 * q < R; ++q) {
          store(to + 2 * q * row + lane, x[q]);
        }
        for (int q = 1; 2 * q <= R; ++q) {
          store(mirrored + (2 * q - 1) * row + lane, conjugate(x[R - q]));
        }
      }
    }
    if (R % 2 == 0 && ido % 2 == 0) {
      // The real value at half the sampling rate of each subsequence; its products are their own mirror
      // image.
      Complex<float> root[R];
      loadRoots(roots, ido / 2 * l1, root);
      const float* from = a + last;
      for (int lane = 0; lane < lanes<V>; lane += width<V>) {
        Complex<V> x[R];
        x[0] = {get<V>(from + lane), V{}};
        for (int j = 1; j < R; ++j) {
          const V value = get<V>(from + j * inStep + lane);
          x[j] = {root[j].re * value, -root[j].im * value};
        }
        complexDft<Direction::forward>(x);
        for (int q = 0; 2 * q < R; ++q) {
          store(b + 2 * q * row + last + lane, x[q]);
        }
      }
    }
  }
}

template <int R, typename V>
void realBackwardPass(ptrdiff_t ido, ptrdiff_t l1, const float* __restrict in, float* __restrict out,
                      const float* roots) {
  const ptrdiff_t row = ido * lanes<V>;
  const ptrdiff_t last = row - lanes<V>;
  const ptrdiff_t outStep = l1 * row;
  for (ptrdiff_t k = 0; k < l1; ++k) {
    const float* a = in + k * R * row;
    float* b = out + k * row;
    for (int lane = 0; lane < lanes<V>; lane += width<V>) {
      V z[R];
      for (int q = 0; q < R; ++q) {
        z[q] = get<V>(a + q * row + (q % 2) * last + lane);
      }
      realInverseDft(z);
      for (int j = 0; j < R; ++j) {
        put(b + j * outStep + lane, z[j]);
      }
    }
    for (ptrdiff_t p = 1; 2 * p < ido; ++p) {
      Complex<float> root[R];
      loadRoots(roots, p * l1, root);
      const float* from = a + (2 * p - 1) * lanes<V>;
      const float* mirrored = a + row - (2 * p + 1) * lanes<V>;
      float* to = b + (2 * p - 1) * lanes<V>;
      for (int lane = 0; lane < lanes<V>; lane += width<V>) {
        Complex<V> x[R];
        for (int q = 0; 2 * q < R; ++q) {
          x[q] = load<V>(from + 2 * q * row + lane);
        }
        for (int q = 1; 2 * q <= R; ++q) {
          x[R - q] = conjugate(load<V>(mirrored + (2 * q - 1) * row + lane));
        }
        complexDft<Direction::backward>(x);
        store(to + lane, x[0]);
        for (int j = 1; j < R; ++j) {
          store(to + j * outStep + lane, turn<Direction::backward>(root[j], x[j]));
        }
      }
    }
    if (R % 2 == 0 && ido % 2 == 0) {
      Complex<float> root[R];
      loadRoots(roots, ido / 2 * l1, root);
      float* to = b + last;
      for (int lane = 0; lane < lanes<V>; lane += width<V>) {
        Complex<V> x[R];
        for (int q = 0; 2 * q < R; ++q) {
          x[q] = load<V>(a + 2 * q * row + last + lane);
          x[R - 1 - q] = conjugate(x[q]);
        }
        complexDft<Direction::backward>(x);
        put(to + lane, x[0].re);
        for (int j = 1; j < R; ++j) {
          put(to + j * outStep + lane, turn<Direction::backward>(root[j], x[j]).re);
        }
      }
    }
  }
}

}  // namespace

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
