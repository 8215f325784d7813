#include "tests/support/NeonMultiplyAdd.h"

#include "vision/superresolution/detail/operators/NeonIntrinsics.h"

namespace movra::test {

void neonMultiplyAdd(const float* sum, const float* a, const float* b, float* result) {
  vst1q_f32(result, vmlaq_f32(vld1q_f32(sum), vld1q_f32(a), vld1q_f32(b)));
}

}  // namespace movra::test
