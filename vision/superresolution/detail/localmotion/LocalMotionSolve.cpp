// What the solver gets: the frames as it sees them, and the noise that its weight follows.

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"
#include "vision/superresolution/detail/localmotion/RobustStatistics.h"

namespace movra::vision::detail {

namespace {

constexpr std::size_t residualSamples = 1 << 14;  // of a frame

}  // namespace

int LocalMotionBurst::viewCount() const {
  std::size_t views = frames.size();
  for (const Frame& frame : frames) {
    views += frame.others.size();
  }
  return static_cast<int>(views);
}

SolverBurst LocalMotionBurst::solverBurst(const LocalMotionOptions& options) const {
  SolverBurst burst{width, height, {}, {}, {}, reference, 0, options.solverSigma};
  if (burst.psfSigma == 0) {
    // The taps integrate over a high-resolution pixel, which has a variance of its own.
    constexpr double pixelVariance = 1. / 12;
    constexpr double leastVariance = 0.02;
    burst.psfSigma = std::sqrt(std::max(leastVariance, options.psfSigma * options.psfSigma - pixelVariance));
  }
  for (const Frame& frame : frames) {
    const bool used = frame.use == FrameUse::used;
    burst.frames.push_back({frame.pixels.data(), frame.measured.data(), frame.good.data(),
                            used ? frame.trusted.data() : nullptr, &frame.field});
    for (const Layer& other : frame.others) {
      if (used && !other.trusted.empty()) {
        burst.others.push_back(burst.frames.back());
        burst.others.back().trusted = other.trusted.data();
        burst.others.back().field = &other.field;
        burst.owners.push_back(static_cast<int>(burst.frames.size()) - 1);
      }
    }
  }
  const Frame& ref = frames[static_cast<std::size_t>(reference)];
  double sum = 0, squares = 0, values = 0;
  for (std::size_t i = 0; i < ref.pixels.size(); ++i) {
    if (ref.good[i] != 0) {
      sum += static_cast<double>(ref.pixels[i]);
      values += 1;
    }
  }
  const double mean = sum / values;
  for (std::size_t i = 0; i < ref.pixels.size(); ++i) {
    if (ref.good[i] != 0) {
      const double d = static_cast<double>(ref.pixels[i]) - mean;
      squares += d * d;
    }
  }
  const double deviation = std::sqrt(squares / values);
  burst.referenceDeviation = deviation > 1e-6 * std::abs(mean) && deviation > 1e-18 ? deviation : 0;
  return burst;
}

void LocalMotionBurst::measureResiduals(std::vector<std::vector<float>>& residuals) {
  for (const std::size_t k : alignedFrames()) {
    for (std::size_t i = 0; i < residuals[k].size(); ++i) {
      if (frames[k].good[i] == 0) {
        residuals[k][i] = std::numeric_limits<float>::quiet_NaN();
      }
    }
    const float* const left = residuals[k].data();
    std::vector<float> sample = sampleOf({&left, 1, width, height}, residualSamples);
    frames[k].residual = robustDeviation(sample);
  }
}

NoiseReport LocalMotionBurst::measureNoise(std::vector<std::vector<float>>& residuals) const {
  std::vector<const float*> pixels, left;
  int referencePlace = 0;
  const std::vector<std::size_t> aligned = alignedFrames();
  std::vector<char> seen(aligned.size() > 1 ? residuals.front().size() : 0, 0);
  for (const std::size_t k : aligned) {
    if (static_cast<int>(k) != reference) {
      const auto add = [&](const std::vector<char>& trusted) {
        std::transform(seen.begin(), seen.end(), trusted.begin(), seen.begin(), std::bit_or<>());
      };
      add(frames[k].trusted);
      std::for_each(frames[k].others.begin(), frames[k].others.end(), [&](const Layer& l) { add(l.trusted); });
    }
  }
  for (const std::size_t k : aligned) {
    if (static_cast<int>(k) == reference) {
      referencePlace = static_cast<int>(pixels.size());
      for (std::size_t i = 0; i < seen.size(); ++i) {
        residuals[k][i] = seen[i] != 0 ? residuals[k][i] : std::numeric_limits<float>::quiet_NaN();
      }
    }
    pixels.push_back(frames[k].pixels.data());
    left.push_back(residuals[k].data());
  }
  const auto used = static_cast<int>(pixels.size());
  return NoiseEstimate::ofResiduals({pixels.data(), used, width, height}, referencePlace,
                                    {left.data(), used, width, height}, noise);
}

double LocalMotionBurst::deviationOfMeans(const std::vector<std::vector<float>>& residuals) const {
  std::vector<float> means;
  for (const std::size_t k : alignedFrames()) {
    for (int y = 1; y + 1 < height; y += 2) {
      const float* const row = residuals[k].data() + static_cast<std::ptrdiff_t>(y) * width;
      for (int x = 1; x + 1 < width; x += 2) {
        float sum = 0;
        for (int i = -1; i <= 1; ++i) {
          for (int j = -1; j <= 1; ++j) {
            sum += row[i * width + x + j];
          }
        }
        if (std::isfinite(sum)) {
          means.push_back(sum / 9);
        }
      }
    }
  }
  return means.empty() ? 0 : static_cast<double>(robustSpread(means).deviation);
}

}  // namespace movra::vision::detail
