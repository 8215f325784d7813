#include "tools/movra-sr/reconstruction/FrameChoice.h"

#include <algorithm>

#include "tools/movra-sr/reconstruction/LocalMotion.h"
#include "vision/superresolution/FrameSelection.h"

namespace movra::tool {

namespace {

double figure(const Reconstruction& result, const std::string& name) {
  const auto found = std::find_if(result.figures.begin(), result.figures.end(),
                                  [&](const auto& entry) { return entry.first == name; });
  return found == result.figures.end() ? 0 : found->second;
}

/// Noise over the deviation of the reference frame.
double noiseShare(const Reconstruction& registered, const cv::Mat_<float>& reference) {
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(reference, mean, deviation, reference == reference);
  return deviation[0] > 0 ? figure(registered, "noise") / deviation[0] : 0;
}

}  // namespace

FrameFates chooseFrames(Window& window, Parameters& parameters, int count) {
  Parameters quick = parameters;
  quick.preset = Preset::fast;
  quick.iterations = 1;  // the image is not wanted
  quick.relativeResidue = 1.f;
  const Reconstruction registered = reconstructLocally(window.frames, quick);
  std::vector<vision::FrameQuality> qualities;
  for (const FrameOutcome& frame : registered.frames) {
    qualities.push_back({frame.motion, frame.agreement, frame.usable, 0, frame.used});
  }
  vision::FrameSelection selection;
  selection.setCount(count == 0 ? vision::FrameSelection::automatic : count);
  selection.setReference(parameters.referenceSlot == Parameters::bestReference ? -1 : registered.reference);
  const cv::Mat_<float>& reference = window.frames[static_cast<std::size_t>(registered.reference)].pixels;
  const vision::FrameSelectionReport chosen =
      selection.select(qualities, reference.rows, noiseShare(registered, reference));

  FrameFates fates;
  for (std::size_t i = 0; i < window.frames.size(); ++i) {
    fates.emplace_back(window.frames[i].name, vision::toString(chosen.verdicts[i]));
  }
  std::vector<Frame> kept;
  for (const int index : chosen.taken) {
    if (index == chosen.reference) {
      parameters.referenceSlot = static_cast<int>(kept.size());
    }
    kept.push_back(std::move(window.frames[static_cast<std::size_t>(index)]));
  }
  window.frames = std::move(kept);
  return fates;
}

}  // namespace movra::tool
