#include "vision/superresolution/detail/fft/FftKernels.h"

#include "vision/superresolution/detail/fft/FftGeneralPasses.h"
#include "vision/superresolution/detail/fft/FftSmallPasses.h"

// The mixed-radix fast Fourier transform with self-sorting passes (C. Temperton, "Self-sorting mixed-radix
// fast Fourier transforms", 1983) and its form for real sequences (P. N. Swarztrauber, "Symmetric FFTs",
// 1986).

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

/// The passes of one kind of transform.
struct Passes {
  /// For the radices 2, 3, 4 and 5: from one array to the other.
  void (*small[4])(ptrdiff_t ido, ptrdiff_t l1, const float* in, float* out, const float* roots);

  /// For any other radix: the result is where the values were.
  void (*general)(ptrdiff_t radix, ptrdiff_t ido, ptrdiff_t l1, float* inOut, float* scratch, const float* roots);
};

template <Direction D, typename V>
constexpr Passes complexPasses{{complexPass<2, D, V>, complexPass<3, D, V>, complexPass<4, D, V>, complexPass<5, D, V>},
                               complexGeneralPass<D, V>};

template <typename V>
constexpr Passes realForwardPasses{
    {realForwardPass<2, V>, realForwardPass<3, V>, realForwardPass<4, V>, realForwardPass<5, V>},
    realForwardGeneralPass<V>};

template <typename V>
constexpr Passes realBackwardPasses{
    {realBackwardPass<2, V>, realBackwardPass<3, V>, realBackwardPass<4, V>, realBackwardPass<5, V>},
    realBackwardGeneralPass<V>};

/// The two arrays that the passes work between; `values` holds what they have made so far.
struct Buffers {
  float* values;
  float* scratch;
};

void run(const Passes& passes, ptrdiff_t radix, ptrdiff_t ido, ptrdiff_t l1, const float* roots, Buffers& buffers) {
  if (radix > 5) {
    passes.general(radix, ido, l1, buffers.values, buffers.scratch, roots);
    return;
  }
  passes.small[radix - 2](ido, l1, buffers.values, buffers.scratch, roots);
  buffers = {buffers.scratch, buffers.values};
}

/// Splits the sequence factor by factor: the passes of the complex and the backward real transforms.
template <const Passes& passes>
float* split(int n, float* data, float* scratch, const float* roots, const int* ifac) {
  Buffers buffers{data, scratch};
  ptrdiff_t l1 = 1;
  for (int f = 0; f < ifac[1]; ++f) {
    const ptrdiff_t radix = ifac[2 + f];
    run(passes, radix, n / (l1 * radix), l1, roots, buffers);
    l1 *= radix;
  }
  return buffers.values;
}

/// Joins single elements factor by factor, the last factor first: the forward real transform.
template <const Passes& passes>
float* join(int n, float* data, float* scratch, const float* roots, const int* ifac) {
  Buffers buffers{data, scratch};
  ptrdiff_t l1 = n;
  for (int f = ifac[1] - 1; f >= 0; --f) {
    const ptrdiff_t radix = ifac[2 + f];
    const ptrdiff_t ido = n / l1;
    l1 /= radix;
    run(passes, radix, ido, l1, roots, buffers);
  }
  return buffers.values;
}

}  // namespace

extern const FftKernels fftKernels;
const FftKernels fftKernels = [] {
  FftKernels kernels{};
  kernels.realForward = join<realForwardPasses<float>>;
  kernels.realBackward = split<realBackwardPasses<float>>;
  kernels.complexForward = split<complexPasses<Direction::forward, float>>;
  kernels.complexBackward = split<complexPasses<Direction::backward, float>>;
  kernels.realForwardBatch = join<realForwardPasses<Vector>>;
  kernels.realBackwardBatch = split<realBackwardPasses<Vector>>;
  kernels.complexForwardBatch = split<complexPasses<Direction::forward, Vector>>;
  kernels.complexBackwardBatch = split<complexPasses<Direction::backward, Vector>>;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
