#include "tools/movra-sr/simulation/Burst.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "tools/movra-sr/simulation/Optics.h"
#include "tools/movra-sr/simulation/Things.h"

namespace movra::tool {

int sceneMargin(const SimulatedCamera& camera) {
  return static_cast<int>(std::ceil(2 * camera.motion.maxShift)) + Optics(camera.psfSigma).radius() + 1;
}

SimulatedBurst simulateBurst(const cv::Mat_<float>& scene, const SimulatedCamera& camera) {
  SimulatedBurst burst;
  burst.reference = std::max(0, camera.frameCount - 4);
  const int margin = sceneMargin(camera);
  const cv::Rect view(margin, margin, 2 * camera.frameSize.width, 2 * camera.frameSize.height);
  const ValueSpan values = valueSpan(scene(view).clone());
  const Optics optics(camera.psfSigma);
  FaultySensor sensor(camera.faults, camera.frameSize, values, camera.seed);
  burst.defects = sensor.defects();

  cv::RNG random(camera.seed);
  burst.motions = drawMotions(camera.motion, camera.frameCount, burst.reference, random);
  for (int i = 0; i < camera.frameCount; ++i) {
    const FrameMotion& motion = burst.motions[static_cast<std::size_t>(i)];
    cv::Mat_<float> moment = scene.clone();
    if (camera.motion.parallax != 0) {
      drawNearThing(moment, view, 2 * motion.parallax, values);
    }
    if (camera.motion.mover != 0) {
      drawMover(moment, view, 2 * motion.mover, values);
    }
    if (i == burst.reference) {
      burst.truth = moment(view).clone();
    }
    burst.levels.push_back(camera.faults.drift * (i - burst.reference) / std::max(1, camera.frameCount - 1));
    burst.frames.push_back(optics.look(moment, margin, camera.frameSize, motion));
    sensor.spoil(burst.frames.back(), burst.levels.back(), random);
  }
  return burst;
}

std::string shiftsAsCsv(const SimulatedBurst& burst, const std::vector<std::string>& names) {
  std::ostringstream table;
  table.imbue(std::locale::classic());
  table << "frame,dx,dy\n";
  for (std::size_t i = 0; i < names.size(); ++i) {
    table << names[i] << ',' << burst.motions[i].camera.x << ',' << burst.motions[i].camera.y << '\n';
  }
  return table.str();
}

nlohmann::ordered_json describeBurst(const SimulatedBurst& burst, const SimulatedCamera& camera,
                                     const std::vector<std::string>& names) {
  using Json = nlohmann::ordered_json;
  const MotionModel& motion = camera.motion;
  const FaultModel& faults = camera.faults;
  Json document{{"width", camera.frameSize.width},
                {"height", camera.frameSize.height},
                {"reference", names[static_cast<std::size_t>(burst.reference)]},
                {"parameters",
                 {{"seed", camera.seed},
                  {"psf_sigma", camera.psfSigma},
                  {"max_shift", motion.maxShift},
                  {"roll", motion.roll},
                  {"zoom", motion.zoom},
                  {"parallax", motion.parallax},
                  {"shutter", motion.shutter},
                  {"mover", motion.mover},
                  {"noise", faults.noise},
                  {"drift", faults.drift},
                  {"pattern", faults.pattern},
                  {"stripes", faults.stripes},
                  {"stuck", faults.stuck},
                  {"defects", faults.defects}}}};
  Json& frames = document["frames"] = Json::array();
  for (std::size_t i = 0; i < names.size(); ++i) {
    const FrameMotion& m = burst.motions[i];
    const double scale = std::hypot(m.camera.xx, m.camera.yx);
    frames.push_back({{"file", names[i]},
                      {"dx", m.camera.x},
                      {"dy", m.camera.y},
                      {"affine", {m.camera.xx, m.camera.xy, m.camera.yx, m.camera.yy}},
                      {"roll_degrees", std::atan2(m.camera.yx, m.camera.xx) * 180 / CV_PI},
                      {"zoom_percent", 100 * (scale - 1)},
                      {"shutter", {m.shutter.x, m.shutter.y}},
                      {"parallax", {m.parallax.x, m.parallax.y}},
                      {"mover", {m.mover.x, m.mover.y}},
                      {"level", burst.levels[i]}});
  }
  Json& defects = document["bad_pixels"] = Json::array();
  for (const Defect& defect : burst.defects) {
    defects.push_back({{"x", defect.pixel.x}, {"y", defect.pixel.y}, {"kind", nameOf(defect.kind)}});
  }
  return document;
}

}  // namespace movra::tool
