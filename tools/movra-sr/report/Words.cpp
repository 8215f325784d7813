#include "tools/movra-sr/report/Words.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace movra::tool {

namespace {

template <class... Values>
std::string format(const char* pattern, Values... values) {
  char text[256];
  std::snprintf(text, sizeof text, pattern, values...);
  return text;
}

std::string list(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

std::string usableShare(const Reconstruction& result, std::size_t frame) {
  if (frame >= result.masks.size()) {
    return "       -  ";
  }
  const cv::Mat_<unsigned char>& mask = result.masks[frame];
  return format("%7.1f%%  ", 100.0 * cv::countNonZero(mask) / static_cast<double>(mask.total()));
}

}  // namespace

std::string statusInWords(const Reconstruction& result, const Window& window) {
  switch (result.verdict) {
    case Verdict::good:
      return result.faint.empty()
                 ? "good, all frames could be aligned"
                 : "degraded, values span less than 2, which is little structure to align by, in " + list(result.faint);
    case Verdict::tooFewUsablePixels:
      return "degraded, in at least one frame half of the pixels or more could not be aligned (motion in the "
             "scene, "
             "roll, noise); little is gained over enlarging one frame";
    case Verdict::displacementTooLarge:
      return format("degraded, a frame lies more than %d pixels (a tenth of the height) off the reference",
                    window.frames.front().pixels.rows / 10);
    case Verdict::registrationFailed:
      break;
  }
  return "refused, the frames could not be aligned (" +
         (result.reason.empty() ? "no corners to follow from the reference frame into every other" : result.reason) +
         "); take another --reference or other frames";
}

std::string remark(const Reconstruction& result) {
  constexpr float negligible = 0.05f;  // pixels
  const auto isWhole = [](float shift) { return std::abs(shift - std::round(shift)) < negligible; };
  const bool sameGrid = std::all_of(result.shifts.begin(), result.shifts.end(),
                                    [&](const cv::Point2f& s) { return isWhole(s.x) && isWhole(s.y); });
  if (result.verdict != Verdict::good || !sameGrid) {
    return {};
  }
  return "the frames do not move by fractions of a pixel, so that they add no detail to each other; expect "
         "less noise only";
}

std::string srFactorInWords(const Reconstruction& result) {
  if (result.verdict != Verdict::good) {
    return "none, see the status";
  }
  const double framesPerPixel = 4 * (static_cast<double>(result.srFactor) - 1) + 1;
  return format("%.2f of 2.00, on average %.1f of %d frames back a pixel", static_cast<double>(result.srFactor),
                framesPerPixel, windowSize);
}

std::string frameTable(const Reconstruction& result, const Window& window, const Parameters& parameters) {
  std::string table =
      "      dx       dy   usable  frame (dx, dy: position against the reference in pixels, right and "
      "down)\n";
  for (std::size_t i = 0; i < result.shifts.size(); ++i) {
    table += format("%8.3f %8.3f ", static_cast<double>(result.shifts[i].x), static_cast<double>(result.shifts[i].y)) +
             usableShare(result, i) + window.frames[i].name +
             (static_cast<int>(i) == parameters.referenceSlot() ? " (reference)\n" : "\n");
  }
  return table;
}

}  // namespace movra::tool
