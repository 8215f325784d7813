#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/FixedPattern.h"

namespace movra::tool {

enum class Verdict {
  good,
  singleFrame,           ///< made of one frame: sharper, without new detail
  tooFewUsablePixels,    ///< half or more of a frame's pixels could not be registered; there is an image
  displacementTooLarge,  ///< a frame lies further off than a tenth of the height; there is an image
  registrationFailed,    ///< no image
};

/// What is known of one frame.
struct FrameOutcome {
  std::string name;
  bool used = true;
  bool spare = false;           ///< it would do, but was not needed
  std::string reason;           ///< why it was left out
  vision::AffineMotion motion;  ///< of local motion only
  cv::Point2d shift;      ///< in the middle of the image: position in the frame minus position in the reference, pixels
  double roll = 0;        ///< degrees, clockwise
  double zoom = 0;        ///< percent, against the reference
  double agreement = -1;  ///< share of its blocks that follow that motion; -1 where the method has no blocks
  double localMotion = 0;    ///< deviation of the local shifts about that motion, pixels
  double offset = 0;         ///< level that was taken out, in the frames' unit
  double usable = -1;        ///< share of its pixels that take part; -1 where the engine does not tell
  double residual = 0;       ///< deviation of frame less prediction, in the frames' unit; 0 where it was not measured
  bool hasFallback = false;  ///< a bad pixel without good neighbours took a fallback value
  bool lowContrast = false;  ///< its values span less than the engine asks for
};

/// Shifts on a grid of places in the reference, per frame.
struct ShiftGrid {
  int columns = 0;
  int rows = 0;
  cv::Point2d first;  ///< position of the first place in the reference, low-resolution pixels
  cv::Point2d step;
  std::vector<std::vector<cv::Point2f>> shifts;  ///< per frame, rows x columns
};

/// What came out of a window of frames.
struct Reconstruction {
  Verdict verdict = Verdict::registrationFailed;
  std::string reason;                 ///< why it failed, when the library told
  cv::Mat_<float> image;              ///< twice the frame size; empty when it failed
  cv::Mat_<unsigned short> coverage;  ///< frame size: number of frames that back each pixel; empty when not told
  std::vector<FrameOutcome> frames;
  int reference = 0;   ///< its frame
  float srFactor = 0;  ///< 0.75 .. 2, of a good one; five frames count
  ShiftGrid field;     ///< of local motion only

  // Of local motion only; empty where nothing could be told.
  cv::Mat_<unsigned char> badPixels;  ///< frame size: other than 0 where the burst showed a pixel to be bad
  vision::PatternAverage pattern;     ///< the sensor's, as this burst tells it

  /// Figures of the method, in the order in which they are told: name, as a key of JSON, and value.
  std::vector<std::pair<std::string, double>> figures;
  std::vector<std::pair<std::string, double>> seconds;  ///< per stage

  /// Mean number of frames that back a pixel, or 0 where the engine does not tell.
  double framesPerPixel() const { return coverage.empty() ? 0 : cv::mean(coverage)[0]; }

  int usedFrames() const {
    int count = 0;
    for (const FrameOutcome& frame : frames) {
      count += frame.used ? 1 : 0;
    }
    return count;
  }
};

}  // namespace movra::tool
