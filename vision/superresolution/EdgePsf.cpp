#include "vision/superresolution/EdgePsf.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "vision/superresolution/NoiseEstimate.h"
#include "vision/superresolution/detail/sensor/EdgeFit.h"
#include "vision/superresolution/detail/sensor/EdgeWindows.h"
#include "vision/superresolution/detail/sensor/FrameChecks.h"
#include "vision/superresolution/detail/sensor/LineSpectrum.h"
#include "vision/superresolution/detail/sensor/LocalMedian.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"

namespace movra::vision {

namespace {

using namespace detail;

constexpr int smallestImageSide = 16;
constexpr double degrees = 57.295779513082320877;
constexpr double largestSlant = 35;     // degrees from an axis; beyond, both axes blur the edge alike
constexpr double interpolatedFrom = 1;  // decades
constexpr double largestMisfit = 0.05;  // root mean square over contrast
constexpr double largestNoise = 1.5;    // or root mean square over the frame's noise
constexpr double largestBlur = 3;       // low-resolution pixels
constexpr double pixelVariance = 1.0 / 12;

/// A fitted window.
struct Measured {
  EdgeFit fit;
  bool alongX;   // the blur is that along x
  double slant;  // degrees
  double total;  // high-resolution pixels
  double error;
};

// Angle between the normal and the nearer axis, degrees.
double slantOf(double angle, bool& alongX) {
  const double c = std::abs(std::cos(angle));
  const double s = std::abs(std::sin(angle));
  alongX = c >= s;
  return degrees * std::atan2(std::min(c, s), std::max(c, s));
}

DirectionBlur combined(const std::vector<Measured>& all, bool alongX) {
  std::vector<double> totals;
  std::vector<double> errors;
  for (const Measured& one : all) {
    if (one.alongX == alongX) {
      totals.push_back(one.total);
      errors.push_back(one.error);
    }
  }
  DirectionBlur blur;
  blur.windows = static_cast<int>(totals.size());
  if (totals.empty()) {
    return blur;
  }
  blur.total = medianOf(totals);
  blur.optics = std::sqrt(std::max(0.0, blur.total * blur.total - 4 * pixelVariance));
  std::vector<double> departures;
  for (const double total : totals) {
    departures.push_back(std::abs(total - blur.total));
  }
  // A median's standard error is 1.2533 times that of a mean. Two windows or so say nothing about their spread.
  const double spread = std::max(medianOf(errors), totals.size() > 2 ? 1.4826 * medianOf(departures) : 0.0);
  blur.uncertainty = totals.size() > 2 ? 1.2533 * spread / std::sqrt(static_cast<double>(totals.size())) : spread;
  return blur;
}

/// Fits the windows and keeps count of why some are no use.
class Measurement {
 public:
  Measurement(const float* frame, int width, double noise_, const std::vector<EdgeWindow>& windows) : noise(noise_) {
    for (const EdgeWindow& window : windows) {
      bool alongX = false;
      const double slant = slantOf(window.angle, alongX);
      if (slant > largestSlant) {
        continue;
      }
      // Over its length the edge must move by a pixel, or it shows one phase only.
      if (std::tan(slant / degrees) * window.size < 1) {
        ++aligned;
        continue;
      }
      keep(fitEdge(frame, width, window));
    }
  }

  EdgePsfReport report() const {
    EdgePsfReport result;
    if (usable.empty()) {
      result.outcome = unfit > 0     ? EdgeOutcome::badFit
                       : aligned > 0 ? EdgeOutcome::onlyAlignedEdges
                                     : EdgeOutcome::noEdge;
      return result;
    }
    result.outcome = EdgeOutcome::measured;
    result.x = combined(usable, true);
    result.y = combined(usable, false);
    const Measured& best = *std::min_element(usable.begin(), usable.end(),
                                             [](const Measured& a, const Measured& b) { return a.error < b.error; });
    result.angle = best.slant;
    result.contrast = best.fit.contrast;
    result.noise = best.fit.rms;
    result.profile = best.fit.profile;
    return result;
  }

 private:
  void keep(EdgeFit fit) {
    const bool good = fit.converged && fit.contrast > 0 && fit.blur < largestBlur &&
                      fit.rms < std::max(largestMisfit * fit.contrast, largestNoise * noise) &&
                      std::isfinite(fit.blurError);
    if (!good) {
      ++unfit;
      return;
    }
    Measured one{std::move(fit), false, 0, 0, 0};
    one.slant = slantOf(one.fit.angle, one.alongX);
    one.total = 2 * std::sqrt(one.fit.blur * one.fit.blur + pixelVariance);
    one.error = 4 * one.fit.blur / one.total * one.fit.blurError;
    usable.push_back(std::move(one));
  }

  double noise;
  std::vector<Measured> usable;
  int aligned = 0;
  int unfit = 0;
};

}  // namespace

const char* toString(EdgeOutcome outcome) {
  switch (outcome) {
    case EdgeOutcome::measured:
      return "measured";
    case EdgeOutcome::frameTooSmall:
      return "the frame is smaller than 16 x 16 pixels";
    case EdgeOutcome::noEdge:
      return "no straight edge that is slanted by less than 35 degrees";
    case EdgeOutcome::onlyAlignedEdges:
      return "the edge runs along the pixels; slant it by two to twenty degrees";
    case EdgeOutcome::badFit:
      break;
  }
  return "no edge is straight and even enough";
}

const char* toString(InterpolatedLines lines) {
  switch (lines) {
    case InterpolatedLines::rows:
      return "the camera interpolates rows: nothing can be gained along y";
    case InterpolatedLines::columns:
      return "the camera interpolates columns: nothing can be gained along x";
    case InterpolatedLines::none:
      break;
  }
  return "no sign of interpolated rows or columns";
}

EdgePsfReport EdgePsf::measure(const float* frame, int width, int height) {
  requireFrames({&frame, 1, width, height});
  EdgePsfReport report;
  if (std::min(width, height) < smallestImageSide) {
    report.outcome = EdgeOutcome::frameTooSmall;
    return report;
  }
  std::vector<float> filled(frame, frame + static_cast<std::ptrdiff_t>(width) * height);
  fillByLocalMedian(filled.data(), width, height, nullptr);
  const double noise = NoiseEstimate::ofFrame(filled.data(), width, height);
  report = Measurement(frame, width, noise, findEdgeWindows(filled.data(), width, height)).report();
  report.spectrumRatio = spectrumRatio(filled.data(), width, height);
  if (std::abs(report.spectrumRatio) > interpolatedFrom) {
    report.interpolated = report.spectrumRatio > 0 ? InterpolatedLines::rows : InterpolatedLines::columns;
  }
  return report;
}

}  // namespace movra::vision
