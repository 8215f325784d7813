#include "vision/superresolution/detail/operators/FramePsfs.h"

#include <algorithm>

#include "vision/superresolution/detail/base/ErrorFunction.h"
#include "vision/superresolution/detail/base/Sizes.h"

namespace movra::vision::detail {

namespace {

// The PSF of one direction moved by `shift` high-resolution pixels, by linear interpolation between neighbouring taps. A
// positive shift moves it to lower indices.
void movePsf(const float* base, int taps, float shift, float* moved) {
  if (taps < 1) {
    return;
  }
  if (shift < 0) {
    moved[0] = 0;
    for (int j = 1; j < taps; ++j) {
      moved[j] = base[j - 1] * -shift + base[j] * (1.0f + shift);
    }
  } else {
    for (int j = 0; j < taps - 1; ++j) {
      moved[j] = base[j] * (1.0f - shift) + base[j + 1] * shift;
    }
    moved[taps - 1] = 0;
  }
}

// The same for shifts of any length.
void movePsfFar(const float* base, int taps, float shift, float* moved) {
  const int whole = std::clamp(truncateToInt(shift), -taps, taps);
  const float part = std::clamp(shift - static_cast<float>(whole), -1.0f, 1.0f);
  const auto tap = [&](int j) { return j >= 0 && j < taps ? base[j] : 0.0f; };
  for (int j = 0; j < taps; ++j) {
    const int k = j + whole;
    moved[j] = part < 0 ? tap(k - 1) * -part + tap(k) * (1.0f + part) : tap(k) * (1.0f - part) + tap(k + 1) * part;
  }
}

}  // namespace

FramePsfs::FramePsfs(int taps, int frameCount, float factor_, PsfPlacement placement_)
    : tapCount(taps),
      factor(factor_),
      placement(placement_),
      basePsf(new float[static_cast<std::size_t>(taps)]()),
      psfX(new float[static_cast<std::size_t>(checkedArea(frameCount, taps))]()),
      psfY(new float[static_cast<std::size_t>(checkedArea(frameCount, taps))]()) {}

void FramePsfs::setSigma(float newSigma) {
  sigma = newSigma;
  float* const psf = basePsf.get();
  std::fill_n(psf, tapCount, 0.0f);
  const float inverseWidth = 1.0f / (sigma * 1.4142135f);
  const int middle = tapCount / 2;
  float sum = 0;
  // The centre lies between two taps, or on one.
  const bool onTap = placement == PsfPlacement::anyFactor && tapCount % 2 == 1;
  const float firstEdge = onTap ? -0.5f : 0.0f;
  const int mirror = onTap ? middle : middle - 1;
  // The mass of the Gaussian on each unit cell to the right of the centre, which is also that of its mirror image.
  for (int i = 0; static_cast<float>(i) < factor && i < tapCount; ++i) {
    const float from = (static_cast<float>(i) + firstEdge) * inverseWidth;
    const float upper = approximateErf((static_cast<float>(i + 1) + firstEdge) * inverseWidth);
    const float lower = from == 0.0f ? 0.0f : approximateErf(from);
    const float mass = 0.5f * (upper - lower);
    if (middle + i < tapCount && mirror - i >= 0) {
      psf[middle + i] = mass;
      psf[mirror - i] = mass;
    }
    sum += onTap && i == 0 ? mass : 2.0f * mass;
  }
  for (int i = 0; i < tapCount; ++i) {
    psf[i] /= sum;
  }
}

// The Gaussian with its middle `shift` high-resolution pixels before that of the taps.
void FramePsfs::moveGaussian(float shift, float* moved) const {
  const float inverseWidth = 1.0f / (sigma * 1.4142135f);
  const float middle = static_cast<float>(tapCount / 2) - shift;
  float lower = approximateErf(-middle * inverseWidth);
  float sum = 0;
  for (int j = 0; j < tapCount; ++j) {
    const float upper = approximateErf((static_cast<float>(j + 1) - middle) * inverseWidth);
    moved[j] = 0.5f * (upper - lower);
    sum += moved[j];
    lower = upper;
  }
  for (int j = 0; j < tapCount; ++j) {
    moved[j] /= sum;
  }
}

void FramePsfs::moveTo(int count, const cv::Point_<float>* shifts) {
  if (placement == PsfPlacement::movedGaussian) {
    for (int k = 0; k < count; ++k) {
      moveGaussian(shifts[k].x * factor, x(k));
      moveGaussian(shifts[k].y * factor, y(k));
    }
    return;
  }
  const auto move = placement == PsfPlacement::anyFactor ? movePsfFar : movePsf;
  for (int k = 0; k < count; ++k) {
    move(base(), tapCount, shifts[k].x * factor, x(k));
    move(base(), tapCount, shifts[k].y * factor, y(k));
  }
}

}  // namespace movra::vision::detail
