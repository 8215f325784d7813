#include "vision/superresolution/detail/FrameKernels.h"
#include "vision/superresolution/detail/InstructionSet.h"

// Chooses each table of kernels by the active instruction set.

namespace movra::vision::detail {

MOVRA_KERNEL_DISPATCH(FrameKernels, frameKernels)

}  // namespace movra::vision::detail
