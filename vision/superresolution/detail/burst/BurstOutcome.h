#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/superresolution/Burst.h"

namespace movra::vision::detail {

/// What a reconstruction behind Burst.h leaves.
struct BurstOutcome {
  movra_sr_result result{};
  std::string particulars;               ///< of a failure
  cv::Mat_<float> image;                 ///< 2 height x 2 width; empty if there is none or none was wanted
  cv::Mat_<unsigned short> coverage;     ///< height x width
  std::vector<unsigned char> badPixels;  ///< found in the burst, height x width
  std::vector<float> pattern;            ///< height x width
  std::vector<float> patternFrames;      ///< that told it, per pixel
  movra_sr_field field{};
  std::vector<cv::Point2d> middleShifts;         ///< per frame, at the middle of the reference
  std::vector<std::vector<cv::Point2f>> shifts;  ///< per frame, on the field's places

  std::vector<const char*> remarks;  ///< per frame, whether it took part

  /// Sets the sr factor, by the engine's rule, from the coverage.
  void rateCoverage();

  /// Ends with a status that is not a success.
  void fail(movra_sr_status status, std::string text);
};

}  // namespace movra::vision::detail
