#include "vision/superresolution/FrameSelection.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

#include "movra/Exception.h"
#include "vision/superresolution/detail/sensor/OrderStatistics.h"

namespace movra::vision {

namespace {

using detail::medianOf;

constexpr double leastCoverage = 0.05;
constexpr double farBelowMedian = 0.5;
constexpr double largeResidual = 1.5;    // times the median
constexpr double largestResidual = 2.5;  // the same of few frames
constexpr double largeShift = 0.05;      // of the height
constexpr double largestShift = 0.5;     // the same of few frames
constexpr double central = 2;            // pixels from the middle, within which any frame may be the reference
constexpr double noisy = 0.04;
constexpr int fewFrames = 12;
constexpr int manyFrames = 20;

/// Place of a shift on the high-resolution grid, one axis.
struct GridPlace {
  explicit GridPlace(double shift)
      : f(std::abs(2 * (shift - std::floor(shift + 0.5)))), phase(f < 0.5 ? 0 : 1), blur(f * (1 - f)) {}
  double f;  // 0 ... 1
  int phase;
  double blur;
};

/// Frames chosen for one reference.
struct Choice {
  int reference = -1;
  std::vector<int> taken;
  double moveBlur = 0;
  int phases = 0;  // of the four that have a frame
};

/// Chooses by the lattice rule among the frames that are left.
class Lattice {
 public:
  Lattice(const std::vector<FrameQuality>& frames_, std::vector<int> left_, std::size_t wanted_)
      : frames(frames_), left(std::move(left_)), wanted(wanted_) {}

  Choice around(int reference) const {
    std::array<std::vector<Placed>, 4> byPhase;
    for (const int k : left) {
      if (k != reference) {
        const GridPlace x(motionOf(k).x - motionOf(reference).x);
        const GridPlace y(motionOf(k).y - motionOf(reference).y);
        byPhase[static_cast<std::size_t>(2 * y.phase + x.phase)].push_back({k, x.blur + y.blur});
      }
    }
    for (std::vector<Placed>& phase : byPhase) {
      std::sort(phase.begin(), phase.end(), [](const Placed& a, const Placed& b) {
        return a.blur < b.blur || (a.blur == b.blur && a.frame < b.frame);
      });
    }
    return inTurn(reference, byPhase);
  }

  /// The best of these references: while frames are left over, as many phases as possible; then the smallest blur.
  Choice best(const std::vector<int>& references) const {
    Choice best;
    for (const int reference : references) {
      Choice choice = around(reference);
      const bool morePhases = left.size() > wanted && choice.phases > best.phases;
      const bool lessPhases = left.size() > wanted && choice.phases < best.phases;
      if (best.reference < 0 || morePhases || (!lessPhases && choice.moveBlur < best.moveBlur)) {
        best = std::move(choice);
      }
    }
    return best;
  }

 private:
  struct Placed {
    int frame;
    double blur;
  };

  const AffineMotion& motionOf(int k) const { return frames[static_cast<std::size_t>(k)].motion; }

  Choice inTurn(int reference, const std::array<std::vector<Placed>, 4>& byPhase) const {
    Choice choice;
    choice.reference = reference;
    choice.taken.push_back(reference);
    // The reference has phase 0, so that comes last.
    constexpr std::array<std::size_t, 4> order{3, 1, 2, 0};
    double blur = 0;
    bool any = true;
    for (std::size_t rank = 0; any && choice.taken.size() < wanted; ++rank) {
      any = false;
      for (const std::size_t phase : order) {
        if (rank < byPhase[phase].size() && choice.taken.size() < wanted) {
          choice.taken.push_back(byPhase[phase][rank].frame);
          blur += byPhase[phase][rank].blur;
          choice.phases += rank == 0 && phase != 0 ? 1 : 0;
          any = true;
        }
      }
    }
    choice.phases += 1;
    choice.moveBlur = blur / (2 * static_cast<double>(choice.taken.size()));
    std::sort(choice.taken.begin(), choice.taken.end());
    return choice;
  }

  const std::vector<FrameQuality>& frames;
  std::vector<int> left;
  std::size_t wanted;
};

bool isRegistered(const FrameQuality& frame) {
  return frame.registered && std::isfinite(frame.motion.x) && std::isfinite(frame.motion.y);
}

template <class Value>
double medianOfRegistered(const std::vector<FrameQuality>& frames, Value value) {
  std::vector<double> values;
  for (const FrameQuality& frame : frames) {
    if (isRegistered(frame) && std::isfinite(value(frame))) {
      values.push_back(value(frame));
    }
  }
  return medianOf(std::move(values));
}

/// Judges frames by themselves and, while there are more than enough, against the medians of all: of few frames each
/// helps where it is trusted.
class QualityLimits {
 public:
  QualityLimits(const std::vector<FrameQuality>& frames, double leastAgreement, bool areMany)
      : agreement(leastAgreement),
        coverage(leastCoverage),
        residual((areMany ? largeResidual : largestResidual) *
                 medianOfRegistered(frames, [](auto& f) { return f.residual > 0 ? f.residual : std::nan(""); })) {
    if (areMany) {
      agreement = std::max(agreement, farBelowMedian * medianOfRegistered(frames, [](auto& f) { return f.agreement; }));
      coverage = std::max(coverage, farBelowMedian * medianOfRegistered(frames, [](auto& f) { return f.coverage; }));
    }
  }

  FrameVerdict verdict(const FrameQuality& frame) const {
    if (!isRegistered(frame)) {
      return FrameVerdict::notRegistered;
    }
    if (!(frame.agreement >= agreement)) {
      return FrameVerdict::fewAgreeingBlocks;
    }
    if (!(frame.coverage >= coverage)) {
      return FrameVerdict::lowCoverage;
    }
    return residual > 0 && !(frame.residual <= residual) ? FrameVerdict::largeResidual : FrameVerdict::spare;
  }

 private:
  double agreement;
  double coverage;
  double residual;
};

std::vector<int> goodOnes(const std::vector<FrameVerdict>& verdicts) {
  std::vector<int> good;
  for (std::size_t k = 0; k < verdicts.size(); ++k) {
    if (verdicts[k] == FrameVerdict::spare) {
      good.push_back(static_cast<int>(k));
    }
  }
  return good;
}

// Where the frames lie: at the given reference, or at the median of the good ones.
AffineMotion::Shift middleOf(const std::vector<FrameQuality>& frames, const std::vector<int>& good, int reference) {
  if (reference >= 0) {
    const AffineMotion& motion = frames[static_cast<std::size_t>(reference)].motion;
    return {motion.x, motion.y};
  }
  std::vector<double> x;
  std::vector<double> y;
  for (const int k : good) {
    x.push_back(frames[static_cast<std::size_t>(k)].motion.x);
    y.push_back(frames[static_cast<std::size_t>(k)].motion.y);
  }
  return {medianOf(std::move(x)), medianOf(std::move(y))};
}

double distance(const AffineMotion& motion, const AffineMotion::Shift& place) {
  return std::hypot(motion.x - place.x, motion.y - place.y);
}

// The nearer half of these frames: a reference at the end of a long way would share little with the other end.
std::vector<int> centralOnes(const std::vector<FrameQuality>& frames, const std::vector<int>& left,
                             const AffineMotion::Shift& middle) {
  std::vector<double> distances;
  for (const int k : left) {
    distances.push_back(distance(frames[static_cast<std::size_t>(k)].motion, middle));
  }
  const double farthest = std::max(central, medianOf(distances));
  std::vector<int> result;
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (distances[i] <= farthest) {
      result.push_back(left[i]);
    }
  }
  return result;
}

}  // namespace

const char* toString(FrameVerdict verdict) {
  switch (verdict) {
    case FrameVerdict::reference:
      return "reference";
    case FrameVerdict::taken:
      return "taken";
    case FrameVerdict::spare:
      return "not needed: others fill the grid better";
    case FrameVerdict::notRegistered:
      return "left out: no motion found";
    case FrameVerdict::fewAgreeingBlocks:
      return "left out: too few blocks of the image agree on a motion";
    case FrameVerdict::lowCoverage:
      return "left out: too few pixels are trusted";
    case FrameVerdict::largeShift:
      return "left out: shifted too far";
    case FrameVerdict::largeResidual:
      break;
  }
  return "left out: differs too much from the prediction";
}

void FrameSelection::setCount(int frames) {
  if (frames < 1 && frames != automatic && frames != all) {
    MOVRA_THROW("the number of frames to take must be at least 1");
  }
  count = frames;
}

FrameSelectionReport FrameSelection::select(const std::vector<FrameQuality>& frames, int height,
                                            double noiseShare) const {
  if (frames.empty()) {
    MOVRA_THROW("no frames");
  }
  const auto size = static_cast<int>(frames.size());
  if (fixedReference >= size) {
    MOVRA_THROW("the reference is none of the frames");
  }
  FrameSelectionReport report;
  report.wanted = count == all ? size : count != automatic ? count : noiseShare > noisy ? manyFrames : fewFrames;

  const QualityLimits limits(frames, leastAgreement, size > report.wanted);
  for (const FrameQuality& frame : frames) {
    report.verdicts.push_back(limits.verdict(frame));
  }
  const int reference =
      fixedReference >= 0 && isRegistered(frames[static_cast<std::size_t>(fixedReference)]) ? fixedReference : -1;
  if (reference >= 0) {
    report.verdicts[static_cast<std::size_t>(reference)] = FrameVerdict::spare;
  }
  const std::vector<int> good = goodOnes(report.verdicts);
  const AffineMotion::Shift middle = middleOf(frames, good, reference);
  const double farthest = height * (size > report.wanted ? largeShift : largestShift);
  for (const int k : good) {
    if (!(distance(frames[static_cast<std::size_t>(k)].motion, middle) <= farthest)) {
      report.verdicts[static_cast<std::size_t>(k)] = FrameVerdict::largeShift;
    }
  }
  const std::vector<int> left = goodOnes(report.verdicts);
  const Lattice lattice(frames, left, static_cast<std::size_t>(report.wanted));
  Choice choice = reference >= 0 ? lattice.around(reference) : lattice.best(centralOnes(frames, left, middle));
  report.reference = choice.reference;
  report.moveBlur = choice.moveBlur;
  report.taken = std::move(choice.taken);
  for (const int k : report.taken) {
    report.verdicts[static_cast<std::size_t>(k)] =
        k == report.reference ? FrameVerdict::reference : FrameVerdict::taken;
  }
  return report;
}

}  // namespace movra::vision
