#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "movra/Exception.h"
#include "vision/superresolution/reference/SuperResolution.h"

namespace movra::tool {

/// The reference engine with the operations that the other engines have for matrices.
class ReferenceEngine : public vision::SuperResolution {
 public:
  ReferenceEngine(int width, int height, int frames, float factor)
      : SuperResolution(width, height, frames, factor),
        imageSize(static_cast<int>(static_cast<float>(width) * factor),
                  static_cast<int>(static_cast<float>(height) * factor)) {}

  static float getMinStructureThreshold() { return 2; }

  int addFrame(const cv::Mat_<float>& frame) {
    const cv::Mat_<float> dense = frame.isContinuous() ? frame : frame.clone();
    return SuperResolution::addFrame(dense.ptr<float>());
  }

  /// The other engines throw "Too large displacement". This one returns -998, which with frames in the window can mean
  /// nothing else.
  float computeSR(cv::Mat_<float>& out) {
    out.create(imageSize);
    const float status = SuperResolution::computeSR(out.ptr<float>());
    if (status == registrationFailed) {
      MOVRA_THROW("Too large displacement");
    }
    return status;
  }

  void getCompleteShifts(std::vector<cv::Point2f>& out) const {
    std::vector<vision::PointF> shifts;
    SuperResolution::getCompleteShifts(shifts);
    out.clear();
    for (const vision::PointF& shift : shifts) {
      out.emplace_back(shift.x, shift.y);
    }
  }

 private:
  cv::Size imageSize;
};

}  // namespace movra::tool
