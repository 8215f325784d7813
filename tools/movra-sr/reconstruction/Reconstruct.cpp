#include "tools/movra-sr/reconstruction/Reconstruct.h"

#include <algorithm>

#include "tools/movra-sr/reconstruction/GlobalMotion.h"
#include "tools/movra-sr/reconstruction/LocalMotion.h"

namespace movra::tool {

namespace {

/// The sr factor of an engine, from the number of frames that back each pixel, up to five.
float srFactorOf(const cv::Mat_<unsigned short>& coverage) {
  double sum = 0;
  for (const unsigned short count : coverage) {
    sum += std::min<int>(count, engineWindow);
  }
  return static_cast<float>(1 + (sum / static_cast<double>(coverage.total()) - 1) / (engineWindow - 1));
}

}  // namespace

Reconstruction reconstruct(const std::vector<Frame>& window, const Parameters& parameters) {
  if (parameters.motion == Motion::global) {
    return reconstructGlobally(window, parameters);
  }
  Reconstruction result = reconstructLocally(window, parameters);
  if (result.verdict == Verdict::good) {
    result.srFactor = srFactorOf(result.coverage);
  }
  return result;
}

}  // namespace movra::tool
