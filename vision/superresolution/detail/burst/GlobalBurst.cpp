#include "vision/superresolution/detail/burst/GlobalBurst.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "movra/Exception.h"
#include "vision/superresolution/SrFloatMinimization.h"
#include "vision/superresolution/SrFloatRegistration1.h"
#include "vision/superresolution/SrFloatRegistration2.h"
#include "vision/superresolution/SuperResolutionBadPixelHandling.h"
#include "vision/superresolution/SuperResolutionTypes.h"
#include "vision/superresolution/detail/burst/Progress.h"
#include "vision/superresolution/detail/engine/StageReport.h"
#include "vision/superresolution/shared/BurstEngine.h"

namespace movra::vision::detail {

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr float upscaling = 2.0f;
constexpr double classicWeight = 400;

bool holdsCounts(const movra_sr_options& options) {
  return options.lowest_valid < -274 || options.highest_valid > 5000;
}

/// The production engine with a report of ours.
template <class Registration>
class StagedEngine
    : public BurstEngine<Registration, SrFloatMinimization, SuperResolutionBadPixelHandling, StageReport> {
 public:
  using Base = BurstEngine<Registration, SrFloatMinimization, SuperResolutionBadPixelHandling, StageReport>;
  using Base::Base;
  using Base::computeSR;
  using Base::registerFrames;

  void configure(const movra_sr_options& options, int referenceIndex) {
    const SolverBudget budget = solverBudget(options);
    this->setReferenceIndex(referenceIndex);
    this->setWeightTV(static_cast<float>(options.weight_tv > 0 ? options.weight_tv : classicWeight));
    this->setPsfSigma(static_cast<float>(options.psf_sigma));
    this->setMaxCGIters(budget.iterations);
    this->setRelativeResidue(static_cast<float>(budget.relativeResidue));
    this->badPixels().setDataIsNUC(holdsCounts(options));
  }
};

/// The value of all good pixels of the frame, if they have one value. A frame without a good pixel has none.
std::optional<float> singleValue(const std::vector<float>& frame, const movra_sr_options& options) {
  std::optional<float> value;
  for (const float pixel : frame) {
    if (!isGood(pixel, options)) {
      continue;
    }
    if (value && *value != pixel) {
      return std::nullopt;
    }
    value = pixel;
  }
  return value;
}

void replaceFlags(cv::Mat_<float>& image) {
  for (float& pixel : image) {
    if (isFlagged(pixel)) {
      pixel = std::numeric_limits<float>::quiet_NaN();
    }
  }
}

template <class Engine>
void judge(float verdict, BurstOutcome& outcome) {
  if (verdict >= 0) {
    outcome.result.status = outcome.result.frames == 1 ? MOVRA_SR_SINGLE_FRAME : MOVRA_SR_SUCCESS;
  } else if (verdict == Engine::displacementTooLarge) {
    outcome.result.status = MOVRA_SR_DISPLACEMENT_TOO_LARGE;
  } else if (verdict == Engine::tooManyMaskedPixels) {
    outcome.result.status = MOVRA_SR_TOO_MANY_MASKED_PIXELS;
  } else if (verdict == Engine::registrationFailed) {
    outcome.fail(MOVRA_SR_NOT_REGISTERED, "a frame has nothing in common with the reference that could be tracked");
  } else {
    outcome.fail(MOVRA_SR_INTERNAL_ERROR, "the solver ended with " + std::to_string(verdict));
  }
}

template <class Mask>
cv::Mat_<unsigned short> sumOf(const std::vector<Mask>& masks, cv::Size size) {
  cv::Mat_<unsigned short> sum(size, 0);
  for (const Mask& mask : masks) {
    std::transform(sum.begin(), sum.end(), mask.begin(), sum.begin(), [](unsigned short count, unsigned char used) {
      return static_cast<unsigned short>(count + (used != 0 ? 1 : 0));
    });
  }
  return sum;
}

template <class Engine>
void run(const BurstFrames& burst, const movra_sr_options& options, bool wantsImage, BurstOutcome& outcome) {
  const Progress progress(options);
  movra_sr_result& result = outcome.result;
  const StopWatch whole;
  const int count = burst.count();
  Engine engine(burst.width, burst.height, count, upscaling);
  engine.configure(options, count - 1 - result.reference);
  for (int i = 0; i < count; ++i) {
    progress.tell(0.2 * i / count);
    try {
      const std::vector<float> frame = flagged(burst.frames[static_cast<std::size_t>(i)], burst.badPixels, options);
      result.fallback_frames += engine.addFrame(frame.data()) < 0 ? 1 : 0;
    } catch (const Exception& refusal) {
      outcome.fail(MOVRA_SR_BAD_FRAME, "frame " + std::to_string(i) + ": " + refusal.what());
      return;
    }
  }
  result.seconds.preparation = whole.stop();

  StageReport report;
  report.finished = [&progress](std::size_t stages) {
    constexpr double doneAfter[] = {0, 0.35, 0.4, 0.95, 1};
    progress.tell(doneAfter[std::min<std::size_t>(stages, 4)]);
  };
  float verdict = 0;
  try {
    if (wantsImage) {
      outcome.image.create(2 * burst.height, 2 * burst.width);
      verdict = engine.computeSR(outcome.image.template ptr<float>(), report);
    } else {
      verdict = engine.registerFrames(report);
    }
  } catch (const Exception& refusal) {
    outcome.fail(MOVRA_SR_NOT_REGISTERED, refusal.what());
    return;
  }
  judge<Engine>(verdict, outcome);
  if (result.status < 0) {
    return;
  }
  replaceFlags(outcome.image);

  std::vector<cv::Point2f> shifts;
  engine.getCompleteShifts(shifts);
  for (const cv::Point2f& shift : shifts) {
    outcome.middleShifts.push_back(shift);
    outcome.shifts.push_back({shift});
    outcome.remarks.push_back("used");
  }
  std::vector<typename Engine::MaskImage> masks;
  engine.getMasks(masks);
  outcome.coverage = sumOf(masks, {burst.width, burst.height});
  result.used_frames = count;
  outcome.rateCoverage();
  result.iterations = report.iterationCount;
  result.weight_tv = wantsImage ? static_cast<double>(engine.getWeightTV()) : 0;
  result.psf_sigma = static_cast<double>(engine.getPsfSigma());
  result.seconds.motion = report.seconds.at(0);
  result.seconds.masks = report.seconds.at(1);
  result.seconds.solve = wantsImage ? report.seconds.at(2) : 0;
  result.seconds.total = whole.stop();
}

/// The image of a reference of one value.
void paint(float value, const BurstFrames& burst, const movra_sr_options& options, bool wantsImage,
           BurstOutcome& outcome) {
  if (wantsImage) {
    outcome.image = cv::Mat_<float>(2 * burst.height, 2 * burst.width, value);
  }
  const auto reference = static_cast<std::size_t>(outcome.result.reference);
  const std::vector<float> frame = flagged(burst.frames[reference], burst.badPixels, options);
  outcome.coverage.create(burst.height, burst.width);
  std::transform(frame.begin(), frame.end(), outcome.coverage.begin(),
                 [&](float pixel) { return static_cast<unsigned short>(isGood(pixel, options) ? 1 : 0); });
  outcome.middleShifts.assign(burst.frames.size(), {notANumber, notANumber});
  outcome.middleShifts[reference] = {0, 0};
  for (const cv::Point2d& shift : outcome.middleShifts) {
    outcome.shifts.push_back({cv::Point2f(shift)});
    outcome.remarks.push_back("left out: the reference has one value throughout");
  }
  outcome.remarks[reference] = "used";
  outcome.result.status = MOVRA_SR_STRUCTURELESS;
  outcome.result.used_frames = 1;
  outcome.rateCoverage();
}

}  // namespace

SolverBudget solverBudget(const movra_sr_options& options) {
  SolverBudget budget{12, 0.002};
  if (options.preset == MOVRA_SR_PRESET_FAST) {
    budget = {8, 0.007};
  } else if (options.preset == MOVRA_SR_PRESET_BEST) {
    budget = {40, 0.001};
  }
  if (options.iterations > 0) {
    budget.iterations = options.iterations;
  }
  if (options.relative_residue > 0) {
    budget.relativeResidue = options.relative_residue;
  }
  return budget;
}

void checkRepairable(const std::vector<float>& frame, int width, int height, const movra_sr_options& options) {
  std::vector<float> copy = flagged(frame, {}, options);
  SuperResolutionBadPixelHandling badPixels(0);
  badPixels.setDataIsNUC(holdsCounts(options));
  cv::Mat_<float> image(height, width, copy.data());
  badPixels.detectAndReplaceBadPixel(image);
}

BurstOutcome reconstructGlobally(const BurstFrames& burst, const movra_sr_options& options, bool wantsImage) {
  BurstOutcome outcome;
  movra_sr_result& result = outcome.result;
  result.frames = burst.count();
  result.reference = options.reference >= 0 ? options.reference : std::max(burst.count() - 4, 0);
  result.noise = notANumber;
  outcome.badPixels.resize(burst.pixels());
  outcome.pattern.resize(burst.pixels());
  outcome.patternFrames.resize(burst.pixels());
  outcome.field.columns = outcome.field.rows = 1;
  outcome.field.left = (burst.width - 1) / 2.0;
  outcome.field.top = (burst.height - 1) / 2.0;

  const auto reference = static_cast<std::size_t>(result.reference);
  const std::optional<float> value = singleValue(flagged(burst.frames[reference], burst.badPixels, options), options);
  if (value) {
    paint(*value, burst, options, wantsImage, outcome);
  } else if (options.registration == MOVRA_SR_REGISTRATION_PHASE) {
    run<StagedEngine<SrFloatRegistration1>>(burst, options, wantsImage, outcome);
  } else {
    run<StagedEngine<SrFloatRegistration2>>(burst, options, wantsImage, outcome);
  }
  return outcome;
}

}  // namespace movra::vision::detail
