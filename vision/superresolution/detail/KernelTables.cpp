// Chooses each table of kernels by the active instruction set.

#include "vision/superresolution/detail/FftBatchKernels.h"
#include "vision/superresolution/detail/FftKernels.h"
#include "vision/superresolution/detail/FrameKernels.h"
#include "vision/superresolution/detail/InstructionSet.h"
#include "vision/superresolution/detail/PsfKernels.h"
#include "vision/superresolution/detail/RegistrationKernels.h"
#include "vision/superresolution/detail/SolverKernels.h"
#include "vision/superresolution/detail/SpectrumKernels.h"
#include "vision/superresolution/detail/TransposeKernels.h"
#include "vision/superresolution/detail/TvKernels.h"

namespace movra::vision::detail {

MOVRA_KERNEL_DISPATCH(FftBatchKernels, fftBatchKernels)
MOVRA_KERNEL_DISPATCH(FftKernels, fftKernels)
MOVRA_KERNEL_DISPATCH(FrameKernels, frameKernels)
MOVRA_KERNEL_DISPATCH(PsfKernels, psfKernels)
MOVRA_KERNEL_DISPATCH(RegistrationKernels, registrationKernels)
MOVRA_KERNEL_DISPATCH(SolverKernels, solverKernels)
MOVRA_KERNEL_DISPATCH(SpectrumKernels, spectrumKernels)
MOVRA_KERNEL_DISPATCH(TransposeKernels, transposeKernels)
MOVRA_KERNEL_DISPATCH(TvKernels, tvKernels)

}  // namespace movra::vision::detail
