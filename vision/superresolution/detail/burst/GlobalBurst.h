#pragma once

#include "vision/superresolution/detail/burst/BurstFrames.h"
#include "vision/superresolution/detail/burst/BurstOutcome.h"

namespace movra::vision::detail {

/// Iterations and relative residue that options ask for, by number or by preset.
struct SolverBudget {
  int iterations;
  double relativeResidue;
};
SolverBudget solverBudget(const movra_sr_options& options);

/// Throws movra::Exception "Too many defect pixels. No processing possible." for a frame that the engine would refuse.
void checkRepairable(const std::vector<float>& frame, int width, int height, const movra_sr_options& options);

/// Reconstruction with one shift per frame, by the production engine: bit for bit what the classic C interface makes of
/// the same frames. The engine is made for the call and fed from the start, so that nothing of earlier frames, as the
/// range of grey values that corners are tracked in, has a say in the result.
/// @param wantsImage false: registration alone
/// @throws Cancelled, and whatever the engine throws
BurstOutcome reconstructGlobally(const BurstFrames& burst, const movra_sr_options& options, bool wantsImage);

}  // namespace movra::vision::detail
