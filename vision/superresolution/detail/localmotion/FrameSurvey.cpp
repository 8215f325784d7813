#include "vision/superresolution/detail/localmotion/FrameSurvey.h"

#include <algorithm>
#include <memory>

#include "vision/superresolution/NoiseEstimate.h"
#include "vision/superresolution/detail/localmotion/AffineEstimation.h"
#include "vision/superresolution/detail/localmotion/BlockShifts.h"
#include "vision/superresolution/detail/localmotion/FrameFill.h"
#include "vision/superresolution/detail/localmotion/MotionConsensus.h"
#include "vision/superresolution/detail/localmotion/RobustStatistics.h"
#include "vision/superresolution/detail/localmotion/WholePixelSearch.h"
#include "vision/superresolution/detail/sensor/FrameChecks.h"

namespace movra::vision::detail {

namespace {

constexpr int smallFrame = 96;         // its smaller side; such frames are looked at as they are
constexpr double fewAgreeing = 0.6;    // share below which another motion is looked for
constexpr std::size_t samples = 8192;  // of differences

/// Of the valid values among four the middle, or the mean of the two in the middle: one bad pixel does not count.
float middleOf(const float (&values)[4], int count) {
  float sum = 0, low = values[0], high = values[0];
  for (int i = 0; i < count; ++i) {
    sum += values[i];
    low = std::min(low, values[i]);
    high = std::max(high, values[i]);
  }
  return count < 3 ? sum / static_cast<float>(count) : (sum - low - high) / static_cast<float>(count - 2);
}

RobustSpread spreadOf(const std::vector<float>& difference, const std::vector<unsigned char>& inside) {
  std::vector<float> sample;
  const std::size_t every = std::max<std::size_t>(1, difference.size() / samples) | 1;
  for (std::size_t i = 0; i < difference.size(); i += every) {
    if (inside[i] != 0) {
      sample.push_back(difference[i]);
    }
  }
  return robustSpread(sample);
}

}  // namespace

struct FrameSurvey::Small {
  explicit Small(int width, int height) : pixels(static_cast<std::size_t>(width * height)), pyramid(width, height) {}

  MotionFrame forMotion() const { return {&pyramid, usable.empty() ? nullptr : usable.data()}; }

  std::vector<float> pixels;
  std::vector<unsigned char> usable;
  BlurredPyramid pyramid;
};

FrameSurvey::FrameSurvey(int w, int h, float lowestValid, float highestValid)
    : width(w), height(h), lowest(lowestValid), highest(highestValid), factor(std::min(w, h) < smallFrame ? 1 : 2) {}

/// Makes the smaller frame with its pyramid; false if no pixel is valid.
bool FrameSurvey::shrink(const float* frame, Small& small) const {
  const int columns = width / factor, rows = height / factor;
  std::vector<char> good(small.pixels.size());
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < columns; ++x) {
      float values[4] = {};
      int count = 0;
      for (int v = factor * y; v < factor * (y + 1); ++v) {
        for (int u = factor * x; u < factor * (x + 1); ++u) {
          const float& value = frame[static_cast<std::ptrdiff_t>(v) * width + u];
          if (isMeasured(value) && value >= lowest && value <= highest) {
            values[count++] = value;
          }
        }
      }
      const auto i = static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(x);
      good[i] = count > 0;
      small.pixels[i] = count > 0 ? middleOf(values, count) : 0.0f;
    }
  }
  if (!fillBadPixels(good, columns, rows, small.pixels, small.usable)) {
    return false;
  }
  small.pyramid.make(small.pixels.data());
  return true;
}

std::vector<SurveyedFrame> FrameSurvey::look(const std::vector<const float*>& frames, int reference,
                                             const JobRunner& run) const {
  std::vector<SurveyedFrame> found(frames.size());
  const int columns = width / factor, rows = height / factor;
  Small base(columns, rows);
  if (!shrink(frames[static_cast<std::size_t>(reference)], base)) {
    return found;
  }
  found[static_cast<std::size_t>(reference)].valid = true;
  found[static_cast<std::size_t>(reference)].agreement = 1;
  const AffineEstimation estimation(base.forMotion());
  const BlockShifts blocks(base.forMotion(), estimation.finest(),
                           NoiseEstimate::ofFrame(base.pixels.data(), columns, rows));
  run(static_cast<int>(frames.size()), [&](int k) {
    SurveyedFrame& frame = found[static_cast<std::size_t>(k)];
    if (k == reference) {
      return;
    }
    Small small(columns, rows);
    frame.valid = shrink(frames[static_cast<std::size_t>(k)], small);
    if (!frame.valid) {
      return;
    }
    const MotionFrame seen = small.forMotion();
    AffineMotion motion =
        estimation.estimate(seen, searchShift(base.pyramid, small.pyramid), estimation.coarsestLevel());
    const std::vector<BlockShift> shifts = blocks.measure(seen, motion);
    frame.agreement = agreementOf(blocks, shifts, motion, columns, rows).share;
    if (frame.agreement < fewAgreeing) {
      const SharedMotion shared = findConsensus(blocks, shifts, columns, rows);
      if (shared.agreement.share > frame.agreement) {
        frame.agreement = shared.agreement.share;
        motion = shared.motion;
      }
    }
    std::vector<float> difference;
    std::vector<unsigned char> inside;
    estimation.finest().compare(small.pyramid, motion, seen.usable, estimation.usable(), difference, inside);
    const RobustSpread spread = spreadOf(difference, inside);
    frame.residual = static_cast<double>(spread.deviation);
    frame.level = -static_cast<double>(spread.median);
    motion.x *= factor;
    motion.y *= factor;
    frame.motion = motion;
  });
  return found;
}

}  // namespace movra::vision::detail
