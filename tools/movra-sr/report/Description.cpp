#include "tools/movra-sr/report/Description.h"

#include "tools/movra-sr/report/Words.h"

namespace movra::tool {

namespace {

const char* keyOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::good:
      return "good";
    case Verdict::singleFrame:
      return "single_frame";
    case Verdict::tooFewUsablePixels:
      return "too_few_usable_pixels";
    case Verdict::displacementTooLarge:
      return "displacement_too_large";
    case Verdict::registrationFailed:
      break;
  }
  return "refused";
}

/// Negative stands for unknown.
Json share(double value) {
  return value < 0 ? Json() : Json(value);
}

Json describe(const FrameOutcome& frame) {
  Json json{{"name", frame.name}, {"used", frame.used}};
  if (!frame.used) {
    json["reason"] = frame.reason;
  }
  json.update({{"dx", frame.shift.x},
               {"dy", frame.shift.y},
               {"roll_degrees", frame.roll},
               {"zoom_percent", frame.zoom},
               {"affine", {frame.motion.xx, frame.motion.xy, frame.motion.yx, frame.motion.yy}},
               {"agreeing_share", share(frame.agreement)},
               {"local_motion", frame.localMotion},
               {"level", frame.offset},
               {"usable_share", share(frame.usable)},
               {"residual", frame.residual > 0 ? Json(frame.residual) : Json()}});
  return json;
}

}  // namespace

Json describe(const Reconstruction& result, const std::optional<Statistics>& statistics) {
  Json json{{"verdict", keyOf(result.verdict)}, {"status", statusInWords(result)}};
  json["sr_factor"] = result.verdict == Verdict::good && result.srFactor > 0 ? Json(result.srFactor) : Json();
  json["frames"] = Json::array();
  for (const FrameOutcome& frame : result.frames) {
    json["frames"].push_back(describe(frame));
  }
  if (!result.frames.empty()) {
    json["reference"] = result.frames[static_cast<std::size_t>(result.reference)].name;
  }
  json["used_frames"] = result.usedFrames();
  json["frames_per_pixel"] = result.coverage.empty() ? Json() : Json(result.framesPerPixel());
  const Spread spread = spreadOf(result);
  json["spread"] = {{"x", spread.x}, {"y", spread.y}};
  if (!result.image.empty()) {
    json["image"] = {{"width", result.image.cols}, {"height", result.image.rows}};
  }
  if (statistics) {
    const cv::Rect& inside = statistics->inside;
    json["inside"] = {{"x", inside.x},
                      {"y", inside.y},
                      {"width", inside.width},
                      {"height", inside.height},
                      {"minimum", statistics->minimum},
                      {"mean", statistics->mean},
                      {"maximum", statistics->maximum}};
  }
  for (const auto& [key, value] : result.figures) {
    json["method"][key] = value;
  }
  for (const auto& [key, value] : result.seconds) {
    json["seconds"][key] = value;
  }
  return json;
}

}  // namespace movra::tool
