#include "vision/superresolution/detail/base/TransposeKernels.h"

namespace movra::vision::detail::MOVRA_KERNEL_SET {

namespace {

using std::ptrdiff_t;
using Float4 = float __attribute__((vector_size(16)));

inline Float4 get(const float* p) {
  Float4 value;
  __builtin_memcpy(&value, p, sizeof value);
  return value;
}

inline void put(float* p, Float4 value) {
  __builtin_memcpy(p, &value, sizeof value);
}

void transpose4x4(const float* in, ptrdiff_t inPitch, float* out, ptrdiff_t outPitch) {
  const Float4 a = get(in);
  const Float4 b = get(in + inPitch);
  const Float4 c = get(in + 2 * inPitch);
  const Float4 d = get(in + 3 * inPitch);
  const Float4 ab01 = __builtin_shufflevector(a, b, 0, 4, 1, 5);
  const Float4 ab23 = __builtin_shufflevector(a, b, 2, 6, 3, 7);
  const Float4 cd01 = __builtin_shufflevector(c, d, 0, 4, 1, 5);
  const Float4 cd23 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
  put(out, __builtin_shufflevector(ab01, cd01, 0, 1, 4, 5));
  put(out + outPitch, __builtin_shufflevector(ab01, cd01, 2, 3, 6, 7));
  put(out + 2 * outPitch, __builtin_shufflevector(ab23, cd23, 0, 1, 4, 5));
  put(out + 3 * outPitch, __builtin_shufflevector(ab23, cd23, 2, 3, 6, 7));
}

/// In tiles of 4 x 4, the shorter side innermost so that each cache line is finished while it is at hand.
void transpose(const float* in, ptrdiff_t inPitch, int rows, int columns, float* out, ptrdiff_t outPitch) {
  const int wholeRows = rows - rows % 4;
  const int wholeColumns = columns - columns % 4;
  if (rows < columns) {
    for (int c = 0; c < wholeColumns; c += 4) {
      for (int r = 0; r < wholeRows; r += 4) {
        transpose4x4(in + r * inPitch + c, inPitch, out + c * outPitch + r, outPitch);
      }
    }
  } else {
    for (int r = 0; r < wholeRows; r += 4) {
      for (int c = 0; c < wholeColumns; c += 4) {
        transpose4x4(in + r * inPitch + c, inPitch, out + c * outPitch + r, outPitch);
      }
    }
  }
  for (int r = 0; r < rows; ++r) {
    for (int c = r < wholeRows ? wholeColumns : 0; c < columns; ++c) {
      out[c * outPitch + r] = in[r * inPitch + c];
    }
  }
}

}  // namespace

extern const TransposeKernels transposeKernels;
const TransposeKernels transposeKernels = [] {
  TransposeKernels kernels{};
  kernels.transpose = transpose;
  return kernels;
}();

}  // namespace movra::vision::detail::MOVRA_KERNEL_SET
