#pragma once

// The 4-lane float operations by their NEON names: the compiler's own on ARM, SIMDe's elsewhere.
//
// vmlaq_f32(a, b, c) rounds the product before it adds, like a + b * c in scalar code. SIMDe would use the fused
// instruction of processors that have one, whatever -ffp-contract says; the compiler's arm_neon.h obeys that option.
#if defined(__ARM_NEON)
#include <arm_neon.h>
#else
#define SIMDE_X86_FMA_NO_NATIVE
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon/combine.h>
#include <simde/arm/neon/dup_n.h>
#include <simde/arm/neon/ld1.h>
#include <simde/arm/neon/ld2.h>
#include <simde/arm/neon/mla.h>
#include <simde/arm/neon/mul.h>
#include <simde/arm/neon/st1.h>
#include <simde/arm/neon/types.h>
#endif
