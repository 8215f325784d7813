#include "tools/movra-sr/report/Words.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "tools/movra-sr/report/Format.h"

namespace movra::tool {

namespace {

std::string lowContrastFrames(const Reconstruction& result) {
  std::string text;
  for (const FrameOutcome& frame : result.frames) {
    if (frame.lowContrast) {
      text += (text.empty() ? "" : ", ") + frame.name;
    }
  }
  return text;
}

bool isNegligible(double roll) {
  return std::abs(roll) < 0.05;
}

/// Below this mean share of fitting pixels, a result is good in parts only.
constexpr double leastWholeShare = 0.5;

/// Mean share of the pixels of the used frames, without the reference, that fit; -1 where the method does not tell.
double usableShare(const Reconstruction& result) {
  double sum = 0;
  int count = 0;
  for (std::size_t i = 0; i < result.frames.size(); ++i) {
    const FrameOutcome& frame = result.frames[i];
    if (frame.used && static_cast<int>(i) != result.reference && frame.usable >= 0) {
      sum += frame.usable;
      ++count;
    }
  }
  return count == 0 ? -1 : sum / count;
}

/// Both axes, one or none of them lack sub-pixel places.
std::string spreadRemark(const Reconstruction& result) {
  constexpr double narrow = 0.25;
  const bool turned = std::any_of(result.frames.begin(), result.frames.end(),
                                  [](const FrameOutcome& frame) { return !isNegligible(frame.roll); });
  const Spread spread = spreadOf(result);
  if (result.usedFrames() < 2 || turned || (spread.x >= narrow && spread.y >= narrow)) {
    return {};
  }
  if (spread.x < narrow && spread.y < narrow) {
    return "the frames do not move by fractions of a pixel, so that they add no detail to each other; expect "
           "less noise only";
  }
  const bool lacksX = spread.x < narrow;
  return format(
      "the frames hardly differ by fractions of a pixel %s (spread %.2f of 1, %s %.2f); expect no more detail "
      "in that direction",
      lacksX ? "from left to right" : "from top to bottom", lacksX ? spread.x : spread.y,
      lacksX ? "from top to bottom" : "from left to right", lacksX ? spread.y : spread.x);
}

}  // namespace

bool isGood(const Reconstruction& result) {
  return result.verdict == Verdict::good && lowContrastFrames(result).empty();
}

bool isGoodInParts(const Reconstruction& result) {
  const double share = usableShare(result);
  return isGood(result) && share >= 0 && share < leastWholeShare;
}

std::string statusInWords(const Reconstruction& result) {
  const int count = static_cast<int>(result.frames.size());
  switch (result.verdict) {
    case Verdict::good: {
      const std::string faint = lowContrastFrames(result);
      if (!faint.empty()) {
        return "degraded, values span less than 2, which is little structure to align by, in " + faint +
               " (where frames are clean and the sr factor is high, the image is none the worse)";
      }
      const bool chosen = std::any_of(result.frames.begin(), result.frames.end(), [](auto& f) { return f.spare; });
      const std::string aligned = result.usedFrames() == count ? "all frames could be aligned"
                                  : chosen ? format("%d of %d frames were chosen", result.usedFrames(), count)
                                           : format("%d of %d frames could be aligned", result.usedFrames(), count);
      if (!isGoodInParts(result)) {
        return "good, " + aligned;
      }
      return "good, in parts: " + aligned +
             format(
                 ", but on average only %.0f %% of their pixels fit the reference; where --coverage is low, little is "
                 "gained (leave out the frames that fit least, see --verbose, or take another --reference)",
                 100 * usableShare(result));
    }
    case Verdict::singleFrame:
      return count == 1 ? "degraded, made of one frame, which is sharper and holds no new detail"
                        : "degraded, made of the reference alone, because no other frame could be aligned";
    case Verdict::tooFewUsablePixels:
      return "degraded, in at least one frame half of the pixels or more could not be aligned (motion in the "
             "scene, roll, noise, a jump of level); little is gained over enlarging one frame";
    case Verdict::displacementTooLarge:
      return format("degraded, a frame lies more than %d pixels (a tenth of the height) off the reference",
                    result.image.rows / 20);
    case Verdict::registrationFailed:
      break;
  }
  return "refused, " +
         (result.reason.empty()
              ? "the frames could not be aligned: no corners to follow from the reference frame into every other"
              : result.reason) +
         "; take another --reference or other frames";
}

std::vector<std::string> remarks(const Reconstruction& result) {
  constexpr double fewFitting = 0.3;
  std::vector<std::string> texts;
  std::string poor;
  for (const FrameOutcome& frame : result.frames) {
    if (frame.hasFallback) {
      texts.push_back(frame.name + ": a bad pixel had no good neighbours and took a fallback value");
    }
    if (!frame.used && !frame.spare) {
      texts.push_back(frame.name + ": left out, " + frame.reason);
    } else if (frame.used && result.verdict == Verdict::good && frame.usable >= 0 && frame.usable < fewFitting) {
      poor += (poor.empty() ? "" : ", ") + std::filesystem::path(frame.name).filename().string() +
              format(" (%.0f %%)", 100 * frame.usable);
    }
  }
  if (!poor.empty()) {
    texts.push_back("few pixels fit the reference in " + poor);
  }
  if (const std::string spread = spreadRemark(result); result.verdict == Verdict::good && !spread.empty()) {
    texts.push_back(spread);
  }
  return texts;
}

std::string srFactorInWords(const Reconstruction& result) {
  if (result.verdict != Verdict::good) {
    return "none, see the status";
  }
  const double factor = static_cast<double>(result.srFactor);
  const double framesPerPixel = result.coverage.empty() ? 4 * (factor - 1) + 1 : result.framesPerPixel();
  return format("%.2f of 2.00, on average %.1f of %d frames back a pixel", factor, framesPerPixel, result.usedFrames());
}

std::string statisticsInWords(const Statistics& statistics, const std::string& unit) {
  const double span = statistics.maximum - statistics.minimum;
  const int decimals = span < 1 ? 3 : span < 1000 ? 2 : 0;
  return format("minimum %.*f, mean %.*f, maximum %.*f%s of the %dx%d pixels that all frames have seen", decimals,
                statistics.minimum, decimals, statistics.mean, decimals, statistics.maximum,
                unit.empty() ? "" : (' ' + unit).c_str(), statistics.inside.width, statistics.inside.height);
}

std::string frameTable(const Reconstruction& result) {
  std::string table =
      "frames (dx, dy: position against the reference in pixels, right and down; roll in degrees, clockwise)\n"
      "      dx       dy    roll    zoom  blocks  usable  level  frame\n";
  const auto percent = [](double share) { return share < 0 ? std::string("     -") : format("%5.1f%%", 100 * share); };
  for (std::size_t i = 0; i < result.frames.size(); ++i) {
    const FrameOutcome& frame = result.frames[i];
    table += format("%8.3f %8.3f %7.3f %6.2f%%  %s  %s %6.2f  ", frame.shift.x, frame.shift.y, frame.roll, frame.zoom,
                    percent(frame.agreement).c_str(), percent(frame.usable).c_str(), frame.offset) +
             frame.name + (static_cast<int>(i) == result.reference ? " (reference)" : "") +
             (frame.used    ? "\n"
              : frame.spare ? " (" + frame.reason + ")\n"
                            : " (left out: " + frame.reason + ")\n");
  }
  return table;
}

}  // namespace movra::tool
