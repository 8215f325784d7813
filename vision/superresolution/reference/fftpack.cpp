#include "vision/superresolution/reference/fftpack.h"

#include "vision/superresolution/detail/fft/MixedRadix.h"

namespace movra::vision::fftpack {

void rffti(int n, float* wsave, int* ifac) {
  detail::prepareRealTransform(n, wsave, ifac);
}

void rfftf(int n, float* r, float* wsave, int* ifac) {
  detail::realForward(n, r, wsave, ifac);
}

void rfftb(int n, float* r, float* wsave, int* ifac) {
  detail::realBackward(n, r, wsave, ifac);
}

void cffti(int n, float* wsave, int* ifac) {
  detail::prepareComplexTransform(n, wsave, ifac);
}

void cfftf(int n, float* c, float* wsave, int* ifac) {
  detail::complexForward(n, c, wsave, ifac);
}

void cfftb(int n, float* c, float* wsave, int* ifac) {
  detail::complexBackward(n, c, wsave, ifac);
}

}  // namespace movra::vision::fftpack
