#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/movra-sr/simulation/Faults.h"
#include "tools/movra-sr/simulation/Motion.h"

namespace movra::tool {

/// A simulated camera and what happens to it.
struct SimulatedCamera {
  cv::Size frameSize{320, 240};  ///< columns x rows of a low-resolution frame
  int frameCount = 5;
  double psfSigma = 0.683;  ///< total blur, optics and pixel area, high-resolution pixels
  MotionModel motion;
  FaultModel faults;
  std::uint64_t seed = 5;
};

/// A burst whose answer is known.
struct SimulatedBurst {
  std::vector<cv::Mat_<float>> frames;
  std::vector<FrameMotion> motions;
  std::vector<double> levels;   ///< what the drift adds to each frame
  std::vector<Defect> defects;  ///< of the sensor
  cv::Mat_<float> truth;        ///< the scene on the high-resolution grid of the reference frame
  int reference = 0;            ///< its frame, which has no motion
};

/// Columns and rows that a scene needs beyond twice the frame size on each side for shifts alone. Where roll, zoom or a
/// rolling shutter reach further, the scene is mirrored.
int sceneMargin(const SimulatedCamera& camera);

/// Looks at the scene (one value per high-resolution pixel, twice the frame size plus the margin on each side). The
/// reference is the frame that an engine takes by default from the last five (the fourth from the end). The same seed
/// gives the same shifts and noise, whatever else is wrong.
SimulatedBurst simulateBurst(const cv::Mat_<float>& scene, const SimulatedCamera& camera);

/// A table with a line per frame: its name, and the shift in the middle of the image, which is the position in the frame
/// minus the position in the reference, low-resolution pixels, x to the right, y downward.
std::string shiftsAsCsv(const SimulatedBurst& burst, const std::vector<std::string>& names);

/// All there is to know about the burst but its pixels.
nlohmann::ordered_json describeBurst(const SimulatedBurst& burst, const SimulatedCamera& camera,
                                     const std::vector<std::string>& names);

}  // namespace movra::tool
