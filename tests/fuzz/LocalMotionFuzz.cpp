// Local motion: options, frames and bad pixels of any kind. A second call, and jobs in another order, give the same bits.
#include <algorithm>

#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/LocalMotionSuperResolution.h"

namespace {

LocalMotionOptions anyOptions(FuzzInput& input) {
  LocalMotionOptions options;
  options.preset = static_cast<LocalMotionPreset>(input.upTo(2));
  options.iterations = input.upTo(7) > 0 ? 2 : input.between(-1, 4);
  options.reference = input.upTo(3) > 0 ? LocalMotionOptions::bestReference : input.between(-2, 5);
  options.tileCore = input.upTo(3) > 0 ? 0 : input.between(7, 40);
  options.weightTV = input.ConsumeBool() ? 400 : 0;
  options.correctOffset = input.ConsumeBool();
  if (input.upTo(7) == 0) {
    options.lowestValid = input.number();
    options.highestValid = input.number();
  }
  if (input.upTo(7) == 0) {
    options.psfSigma = static_cast<double>(input.number());
    options.solverSigma = static_cast<double>(input.number());
    options.relativeResidue = static_cast<double>(input.number());
    options.alignmentError = static_cast<double>(input.number());
    options.leastAgreement = static_cast<double>(input.number());
  }
  return options;
}

bool sameBits(const cv::Mat_<float>& a, const cv::Mat_<float>& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data, b.data, a.total() * sizeof(float)) == 0);
}

void check(const LocalMotionResult& result, int width, int height, int frames) {
  const bool hasImage = result.status <= LocalMotionStatus::structureless;
  require(result.image.size() == (hasImage ? cv::Size(2 * width, 2 * height) : cv::Size()),
          "the status tells the image");
  if (!hasImage) {
    return;
  }
  require(static_cast<int>(result.frames.size()) == frames, "each frame is reported");
  require(result.usedFrames >= 1 && result.usedFrames <= frames, "at least the reference takes part");
  require(result.reference >= 0 && result.reference < frames, "the reference is one of the frames");
  require(result.coverage.size() == cv::Size(width, height), "coverage has the frame's size");
  for (const unsigned short count : result.coverage) {
    require(count <= result.usedFrames, "no pixel has more frames than there are");
  }
  const auto places = static_cast<std::size_t>(result.field.columns) * static_cast<std::size_t>(result.field.rows);
  for (const auto& shifts : result.field.shifts) {
    require(shifts.size() == places, "the field has a shift for each place");
  }
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  const int width = input.upTo(15) > 0 ? input.between(8, 24) : input.between(-1, 8);
  const int height = input.upTo(15) > 0 ? input.between(8, 24) : input.between(-1, 8);
  LocalMotionOptions options = anyOptions(input);
  accepts([&] {  // a size, an option or a reference may be out of its range
    LocalMotionSuperResolution forwards(width, height, options);
    options.runJobs = [](int jobs, const std::function<void(int)>& job) {
      for (int i = jobs - 1; i >= 0; --i) {
        job(i);
      }
    };
    LocalMotionSuperResolution backwards(width, height, options);
    int frames = 0;
    for (int calls = 0; calls < 7 && !input.isUsedUp(); ++calls) {
      if (input.upTo(7) > 0) {
        const std::vector<float> frame = input.frame(width, height);
        forwards.addFrame(frame.data());
        backwards.addFrame(frame.data());
        ++frames;
      } else {
        std::vector<unsigned char> map(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        std::fill(map.begin(), map.end(), input.upTo(15) == 0 ? 1 : 0);
        for (int count = input.upTo(20); count > 0; --count) {
          map[input.ConsumeIntegralInRange<std::size_t>(0, map.size() - 1)] = 1;
        }
        forwards.setBadPixels(map.data());
        backwards.setBadPixels(map.data());
      }
    }
    const LocalMotionResult result = forwards.computeSR();
    check(result, width, height, frames);
    const LocalMotionResult again = backwards.computeSR();
    require(again.status == result.status && sameBits(again.image, result.image),
            "jobs in any order give the same bits");
  });
}
