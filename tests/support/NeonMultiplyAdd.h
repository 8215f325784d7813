#pragma once

namespace movra::test {

/// result = sum + a * b in four lanes, by vmlaq_f32 compiled for a processor with fused operations.
void neonMultiplyAdd(const float* sum, const float* a, const float* b, float* result);

}  // namespace movra::test
