#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "tools/movra-sr/reconstruction/Reconstruction.h"
#include "tools/movra-sr/report/Console.h"
#include "tools/movra-sr/report/Preview.h"

namespace movra::tool {

/// What a report page shows.
struct ReportContents {
  const Reconstruction& result;
  cv::Mat_<float> bicubic;  ///< the reference frame, enlarged; the image's size
  cv::Mat_<float> image;
  const Json& document;  ///< what --json prints: status, figures, notes
  std::string commandLine;
  std::string unit;
  Look look;
};

/// A page of HTML that needs no other file and no network: before and after under a slider, motion of each frame as
/// arrows, coverage, figures, and the status in words with what to do about it. For light and dark screens and phones.
std::string drawReport(const ReportContents& contents);

}  // namespace movra::tool
