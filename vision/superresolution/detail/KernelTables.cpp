// Chooses each table of kernels by the active instruction set.

#include "vision/superresolution/detail/badpixels/FrameKernels.h"
#include "vision/superresolution/detail/base/BoxKernels.h"
#include "vision/superresolution/detail/base/InstructionSet.h"
#include "vision/superresolution/detail/base/TransposeKernels.h"
#include "vision/superresolution/detail/fft/FftBatchKernels.h"
#include "vision/superresolution/detail/fft/FftKernels.h"
#include "vision/superresolution/detail/localmotion/LocalMotionKernels.h"
#include "vision/superresolution/detail/operators/PsfKernels.h"
#include "vision/superresolution/detail/registration/FilterKernels.h"
#include "vision/superresolution/detail/registration/PatchKernels.h"
#include "vision/superresolution/detail/registration/RegistrationKernels.h"
#include "vision/superresolution/detail/registration/SpectrumKernels.h"
#include "vision/superresolution/detail/sensor/SensorKernels.h"
#include "vision/superresolution/detail/solver/SolverKernels.h"
#include "vision/superresolution/detail/solver/TvKernels.h"

namespace movra::vision::detail {

MOVRA_KERNEL_DISPATCH(BoxKernels, boxKernels)
MOVRA_KERNEL_DISPATCH(FftBatchKernels, fftBatchKernels)
MOVRA_KERNEL_DISPATCH(FftKernels, fftKernels)
MOVRA_KERNEL_DISPATCH(FilterKernels, filterKernels)
MOVRA_KERNEL_DISPATCH(FrameKernels, frameKernels)
MOVRA_KERNEL_DISPATCH(PatchKernels, patchKernels)
MOVRA_KERNEL_DISPATCH(LocalMotionKernels, localMotionKernels)
MOVRA_KERNEL_DISPATCH(PsfKernels, psfKernels)
MOVRA_KERNEL_DISPATCH(RegistrationKernels, registrationKernels)
MOVRA_KERNEL_DISPATCH(SensorKernels, sensorKernels)
MOVRA_KERNEL_DISPATCH(SolverKernels, solverKernels)
MOVRA_KERNEL_DISPATCH(SpectrumKernels, spectrumKernels)
MOVRA_KERNEL_DISPATCH(TransposeKernels, transposeKernels)
MOVRA_KERNEL_DISPATCH(TvKernels, tvKernels)

}  // namespace movra::vision::detail
