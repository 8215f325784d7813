#include "tools/movra-sr/commands/CameraFiles.h"

#include <algorithm>
#include <filesystem>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/reconstruction/BadPixelList.h"
#include "tools/movra-sr/reconstruction/PatternFile.h"

namespace movra::tool {

CameraFiles::CameraFiles(const ReconstructOptions& options)
    : listFile(options.savedBadPixels),
      patternFile(options.pattern),
      listGrows(options.listGrows()),
      kind(patternKind(options.scale.gain, options.parameters.counts, options.isRaw())) {
  if (!patternFile.empty()) {
    known = readPattern(patternFile, kind);
  }
}

void CameraFiles::open(OutputSet& files) {
  const char* const key = "bad-pixel list";
  listOutput = listGrows ? files.openGrowing(key, listFile) : files.open(key, listFile);
  patternOutput = files.openGrowing("pattern", patternFile);
}

void CameraFiles::requireSizeOf(const Frame& frame, const Preparation& preparation) const {
  if (preparation.listedPixels()) {
    requireSameSensor(preparation.badPixelList(), frame);
  }
  requirePatternOf(frame);
}

void CameraFiles::requirePatternOf(const Frame& frame) const {
  const cv::Size size(known.width, known.height);
  if (!known.empty() && size != frame.pixels.size()) {
    throw Failure(ExitCode::badInput, patternFile + ": is for frames of " + sizeText(size) + ", but " + frame.name +
                                          " is " + sizeText(frame.pixels.size()) + "; use the pattern of this camera");
  }
}

void CameraFiles::writeBadPixels(const Reconstruction& result, const BadPixelFile& listed, Console& console) const {
  const cv::Size frameSize(result.image.cols / 2, result.image.rows / 2);
  const cv::Mat_<unsigned char> none(frameSize, static_cast<unsigned char>(0));
  const BadPixelFile grown = grownBy(listed, result.badPixels.empty() ? none : result.badPixels);
  listOutput->write(badPixelsAsCsv(grown.list, grown.frameSize, grown.bursts));
  const int certain = grown.certainPixels();
  const int doubtful = grown.list.rows - certain;
  console.say("bad pixels kept: " + std::to_string(certain) + " certain, " + std::to_string(doubtful) +
              " seen in one burst");
  console.document["bad_pixels"]["kept_certain"] = certain;
  console.document["bad_pixels"]["kept_doubtful"] = doubtful;
}

void CameraFiles::write(const Reconstruction& result, const BadPixelFile& listed, OutputSet& files,
                        Console& console) const {
  if (listOutput != nullptr) {
    writeBadPixels(result, listed, console);
  }
  if (patternOutput == nullptr) {
    return;
  }
  const std::vector<float>& weights = result.pattern.weights;
  if (std::none_of(weights.begin(), weights.end(), [](float weight) { return weight > 0; })) {
    console.note(
        "this burst tells no fixed pattern (fewer than three frames fit, or they hardly move); the file of --pattern "
        "is "
        "left as it is");
    files.drop(patternOutput);
    return;
  }
  vision::PatternAverage average = known;
  average.merge(result.pattern);
  writePattern(*patternOutput, average, kind);
}

std::vector<float> knownPatternFor(const Frame& frame, const ReconstructOptions& options) {
  if (options.pattern.empty()) {
    return {};
  }
  if (!std::filesystem::exists(options.pattern)) {
    throw Failure(ExitCode::badInput, options.pattern + ": is not there; movra-sr reconstruct --pattern makes it");
  }
  const CameraFiles camera(options);
  camera.requirePatternOf(frame);
  return camera.pattern();
}

}  // namespace movra::tool
