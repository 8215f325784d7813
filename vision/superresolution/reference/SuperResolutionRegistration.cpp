#include "vision/superresolution/reference/SuperResolutionRegistration.h"

#include <algorithm>

#include "vision/superresolution/detail/base/Sizes.h"
#include "vision/superresolution/detail/registration/PhaseRegistration.h"
#include "vision/superresolution/detail/registration/WholePixelMove.h"
#include "vision/superresolution/reference/Points.h"

namespace movra::vision {

SuperResolutionRegistration::SuperResolutionRegistration(int width_, int height_, float /*factor*/, int gaussRadius)
    : width(detail::checkedSize(width_)),
      height(detail::checkedSize(height_)),
      fft(width, height),
      phase(std::make_unique<detail::PhaseRegistration>(width, height, fft, gaussRadius)) {}

SuperResolutionRegistration::~SuperResolutionRegistration() = default;

float SuperResolutionRegistration::getRegError() const {
  return phase->fine.regError;
}

void SuperResolutionRegistration::setRegError(float maximumError) {
  phase->fine.regError = maximumError;
}

int SuperResolutionRegistration::doRegistration(int count, int refIndex, float** frames, float (**spectra)[2],
                                                PointF* shifts, char** masks, float** workingFrames) {
  if (refIndex < 0 || refIndex >= count) {
    return noFrames;
  }
  measured.resize(static_cast<std::size_t>(count));
  phase->registerFrames(count, refIndex, frames, spectra, masks, measured.data());
  completeShifts.resize(measured.size());
  std::transform(measured.begin(), measured.end(), completeShifts.begin(), detail::toPointF);

  const bool allWithin = detail::moveAll(count, width, height, frames, measured.data(), workingFrames);
  std::transform(measured.begin(), measured.end(), shifts, detail::toPointF);
  return allWithin ? 0 : displacementTooLarge;
}

}  // namespace movra::vision
