#include "vision/superresolution/detail/sensor/LineOffsets.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "vision/superresolution/detail/sensor/SensorKernels.h"

namespace movra::vision::detail {

namespace {

constexpr int bandHeight = 100;  // pixels over which the shift hardly varies
constexpr int fewestLines = 8;
constexpr double certain = 4;            // deviations of the covariance of two halves by chance
constexpr double gaussDeviation = 0.34;  // of the point-spread function, low-resolution pixels
constexpr int taps = 7;                  // half pixels
constexpr int border = 16;               // half pixels beyond the frame that it may have seen
constexpr int solverSteps = 20;
constexpr int priorRounds = 3;
constexpr double leastGain = 2;  // of the residual's variance per parameter, against chance

/// Means of the residuals over a band of rows (or columns), per frame and line.
class BandMeans {
 public:
  BandMeans(const FrameStack& residuals, const unsigned char* bad, float limit, SensorLines lines)
      : columns(lines == SensorLines::columns),
        lineCount(columns ? residuals.width : residuals.height),
        across(columns ? residuals.height : residuals.width),
        bandCount(std::max(2, across / bandHeight)),
        frameCount(residuals.count) {
    const std::size_t size = static_cast<std::size_t>(frameCount) * static_cast<std::size_t>(bandCount * lineCount);
    means.assign(size, 0.0f);
    counts.assign(size, 0.0f);
    std::vector<float> squares(static_cast<std::size_t>(residuals.width));
    const std::vector<unsigned char> none(static_cast<std::size_t>(residuals.width), 0);
    std::vector<float> rowSums(squares.size());
    std::vector<float> rowCounts(squares.size());
    for (int k = 0; k < frameCount; ++k) {
      for (int y = 0; y < residuals.height; ++y) {
        const std::size_t at = static_cast<std::size_t>(y) * static_cast<std::size_t>(residuals.width);
        const float* const row = residuals.frames[k] + at;
        const unsigned char* const faults = bad != nullptr ? bad + at : none.data();
        if (columns) {
          const std::size_t to = index(k, y * bandCount / across, 0);
          sensorKernels().addResiduals(row, faults, limit, residuals.width, &means[to], squares.data(), &counts[to]);
          continue;
        }
        std::fill(rowSums.begin(), rowSums.end(), 0.0f);
        std::fill(rowCounts.begin(), rowCounts.end(), 0.0f);
        sensorKernels().addResiduals(row, faults, limit, residuals.width, rowSums.data(), squares.data(),
                                     rowCounts.data());
        for (int x = 0; x < residuals.width; ++x) {
          const std::size_t to = index(k, x * bandCount / across, y);
          means[to] += rowSums[static_cast<std::size_t>(x)];
          counts[to] += rowCounts[static_cast<std::size_t>(x)];
        }
      }
    }
    for (std::size_t i = 0; i < size; ++i) {
      means[i] /= std::max(counts[i], 1.0f);
    }
  }

  std::size_t index(int k, int band, int line) const {
    return static_cast<std::size_t>((k * bandCount + band) * lineCount + line);
  }
  /// Middle of a band.
  double middle(int band) const { return (band + 0.5) * across / bandCount - 0.5; }

  /// Whether the means over all frames of the upper half and of the lower half vary alike along the lines: a pattern of
  /// the lines does so, noise and the scene's detail do not.
  bool halvesAgree() const {
    std::vector<double> halves[2];
    for (int half = 0; half < 2; ++half) {
      halves[half].assign(static_cast<std::size_t>(lineCount), 0.0);
      for (int line = 0; line < lineCount; ++line) {
        double sum = 0, count = 0;
        for (int k = 0; k < frameCount; ++k) {
          for (int band = half * bandCount / 2; band < (half + 1) * bandCount / 2; ++band) {
            const std::size_t i = index(k, band, line);
            sum += static_cast<double>(means[i]) * static_cast<double>(counts[i]);
            count += static_cast<double>(counts[i]);
          }
        }
        halves[half][static_cast<std::size_t>(line)] = count > 0 ? sum / count : 0;
      }
    }
    // Of differences between neighbours, which the slow errors of the fit do not reach.
    double both = 0, first = 0, second = 0;
    for (std::size_t i = 1; i < halves[0].size(); ++i) {
      const double a = halves[0][i] - halves[0][i - 1];
      const double b = halves[1][i] - halves[1][i - 1];
      both += a * b;
      first += a * a;
      second += b * b;
    }
    return both > certain * std::sqrt(first * second / static_cast<double>(halves[0].size()));
  }

  bool columns;
  int lineCount;
  int across;
  int bandCount;
  int frameCount;
  std::vector<float> means;   // frames x bands x lines
  std::vector<float> counts;  // pixels of each
};

/// The joint estimate of pattern and error of the image.
class LineModel {
 public:
  LineModel(const BandMeans& measured, const FrameStack& residuals, const std::vector<AffineMotion>& motions)
      : data(measured), places(2 * measured.lineCount + 2 * border) {
    const auto size = data.means.size();
    firstPlace.resize(size);
    weights.resize(size * taps);
    for (int k = 0; k < data.frameCount; ++k) {
      const AffineMotion& motion = motions[static_cast<std::size_t>(k)];
      for (int band = 0; band < data.bandCount; ++band) {
        for (int line = 0; line < data.lineCount; ++line) {
          const double middle = data.middle(band);
          const AffineMotion::Shift s = data.columns ? motion.shiftAt(line, middle, residuals.width, residuals.height)
                                                     : motion.shiftAt(middle, line, residuals.width, residuals.height);
          place(data.index(k, band, line), line - (data.columns ? s.x : s.y));
        }
      }
    }
  }

  /// The pattern; empty if it is none.
  std::vector<double> solve() {
    double priorPattern = 0, total = 0;
    for (std::size_t i = 0; i < data.means.size(); ++i) {
      const double m = static_cast<double>(data.means[i]), n = weightOf(i);
      priorPattern += n * m * m;
      total += n;
    }
    if (!(total > 0)) {
      return {};
    }
    priorPattern = std::max(1e-20, 9 * priorPattern / total);
    // Without a pattern: what the image's error alone leaves.
    withPattern = false;
    double noise = 0.01 * priorPattern;
    const double alone = fit(noise / priorPattern);
    withPattern = true;
    double left = 0;
    for (int round = 0; round < priorRounds; ++round) {
      left = fit(noise / priorPattern);
      double squares = 0;
      for (int line = 0; line < data.lineCount; ++line) {
        squares += pattern()[line] * pattern()[line];
      }
      priorPattern = std::max(1e-20, squares / data.lineCount);
      noise = std::max(1e-4 * priorPattern, left / total * 1.5);
    }
    const double freedom = std::max(1.0, 0.3 * total);
    const double gain = (alone - left) / data.lineCount / std::max(1e-30, left / freedom);
    if (!(gain > leastGain)) {
      return {};
    }
    return {unknowns.begin(), unknowns.begin() + data.lineCount};
  }

 private:
  double weightOf(std::size_t i) const { return data.counts[i] > 0 ? 1 : 0; }
  double* pattern() { return unknowns.data(); }

  void place(std::size_t i, double position) {
    const double half = 2 * position + border;
    const double first = std::floor(half + 0.5) - taps / 2;
    const bool inside = first >= 0 && first + taps <= places;
    firstPlace[i] = inside ? static_cast<int>(first) : -1;
    double sum = 0;
    for (int t = 0; t < taps && inside; ++t) {
      const double distance = 0.5 * (first + t - half) / gaussDeviation;
      weights[i * taps + static_cast<std::size_t>(t)] = std::exp(-0.5 * distance * distance);
      sum += weights[i * taps + static_cast<std::size_t>(t)];
    }
    for (int t = 0; t < taps && inside; ++t) {
      weights[i * taps + static_cast<std::size_t>(t)] /= sum;
    }
  }

  /// Calls f(i, line, first unknown of the image's error) for each mean that counts.
  template <class F>
  void forEach(F f) const {
    for (int k = 0; k < data.frameCount; ++k) {
      for (int band = 0; band < data.bandCount; ++band) {
        for (int line = 0; line < data.lineCount; ++line) {
          const std::size_t i = data.index(k, band, line);
          if (data.counts[i] > 0 && firstPlace[i] >= 0) {
            f(i, static_cast<std::size_t>(line),
              static_cast<std::size_t>(data.lineCount + band * places + firstPlace[i]));
          }
        }
      }
    }
  }

  double predicted(const std::vector<double>& x, std::size_t i, std::size_t line, std::size_t first) const {
    double sum = withPattern ? x[line] : 0;
    for (std::size_t t = 0; t < taps; ++t) {
      sum += weights[i * taps + t] * x[first + t];
    }
    return sum;
  }
  void spread(double value, std::size_t i, std::size_t line, std::size_t first, std::vector<double>& out) const {
    out[line] += withPattern ? value : 0;
    for (std::size_t t = 0; t < taps; ++t) {
      out[first + t] += weights[i * taps + t] * value;
    }
  }

  /// Conjugate gradients from where the last fit ended; the sum of the squares that are left.
  double fit(double shrinkage) {
    const auto size = static_cast<std::size_t>(data.lineCount + data.bandCount * places);
    unknowns.resize(size, 0.0);
    std::vector<double> residual(size, 0.0), step, image(size);
    forEach([&](std::size_t i, std::size_t line, std::size_t first) {
      spread(static_cast<double>(data.means[i]) - predicted(unknowns, i, line, first), i, line, first, residual);
    });
    double norm = 0;
    for (std::size_t j = 0; j < size; ++j) {
      residual[j] -= shrinkage * unknowns[j];
      norm += residual[j] * residual[j];
    }
    step = residual;
    const double enough = 1e-8 * norm;
    for (int n = 0; n < solverSteps && norm > enough && norm > 0; ++n) {
      std::fill(image.begin(), image.end(), 0.0);
      forEach([&](std::size_t i, std::size_t line, std::size_t first) {
        spread(predicted(step, i, line, first), i, line, first, image);
      });
      double curvature = 0;
      for (std::size_t j = 0; j < size; ++j) {
        image[j] += shrinkage * step[j];
        curvature += step[j] * image[j];
      }
      const double length = norm / curvature;
      double next = 0;
      for (std::size_t j = 0; j < size; ++j) {
        unknowns[j] += length * step[j];
        residual[j] -= length * image[j];
        next += residual[j] * residual[j];
      }
      for (std::size_t j = 0; j < size; ++j) {
        step[j] = residual[j] + next / norm * step[j];
      }
      norm = next;
    }
    double left = 0;
    forEach([&](std::size_t i, std::size_t line, std::size_t first) {
      const double e = static_cast<double>(data.means[i]) - predicted(unknowns, i, line, first);
      left += e * e;
    });
    return left;
  }

  const BandMeans& data;
  int places;  // of the image's error in a band, half pixels
  bool withPattern = true;
  std::vector<int> firstPlace;
  std::vector<double> weights;
  std::vector<double> unknowns;  // the pattern, then each band's error of the image
};

}  // namespace

std::vector<float> lineOffsets(const FrameStack& residuals, const std::vector<AffineMotion>& motions,
                               const unsigned char* bad, float limit, SensorLines lines) {
  if (std::min(residuals.width, residuals.height) < fewestLines) {
    return {};
  }
  const BandMeans means(residuals, bad, limit, lines);
  if (!means.halvesAgree()) {
    return {};
  }
  const std::vector<double> found = LineModel(means, residuals, motions).solve();
  double mean = 0;
  for (const double value : found) {
    mean += value / static_cast<double>(found.size());
  }
  std::vector<float> result;
  for (const double value : found) {
    result.push_back(static_cast<float>(value - mean));
  }
  return result;
}

}  // namespace movra::vision::detail
