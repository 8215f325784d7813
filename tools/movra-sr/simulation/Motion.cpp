#include "tools/movra-sr/simulation/Motion.h"

#include <cmath>

namespace movra::tool {

namespace {

vision::AffineMotion turned(double degrees, double percent, cv::Point2d shift) {
  const double angle = degrees * CV_PI / 180;
  const double scale = 1 + percent / 100;
  return {scale * std::cos(angle),
          -scale * std::sin(angle),
          scale * std::sin(angle),
          scale * std::cos(angle),
          shift.x,
          shift.y};
}

}  // namespace

cv::Point2d FrameMotion::seenBy(cv::Point2d pixel, cv::Size frameSize) const {
  const cv::Point2d centre(0.5 * (frameSize.width - 1), 0.5 * (frameSize.height - 1));
  const double time = pixel.y / (frameSize.height - 1) - 0.5;
  const cv::Point2d d = pixel - centre - cv::Point2d(camera.x, camera.y) - time * shutter;
  const double determinant = camera.xx * camera.yy - camera.xy * camera.yx;
  return centre + cv::Point2d(camera.yy * d.x - camera.xy * d.y, camera.xx * d.y - camera.yx * d.x) / determinant;
}

std::vector<FrameMotion> drawMotions(const MotionModel& model, int count, int reference, cv::RNG& random) {
  std::vector<cv::Point2d> places;  // -1 .. 1 per axis
  for (int i = 0; i < count; ++i) {
    // In braces, where the order of the two draws is certain.
    places.push_back(cv::Point2d{random.uniform(-1., 1.), random.uniform(-1., 1.)});
  }
  cv::RNG directions(random.state);  // a generator of its own, so that the noise does not depend on it

  std::vector<FrameMotion> motions(static_cast<std::size_t>(count));
  int moving = 0;
  for (int i = 0; i < count; ++i) {
    const double direction = directions.uniform(0., 2 * CV_PI);
    if (i == reference) {
      continue;
    }
    FrameMotion& motion = motions[static_cast<std::size_t>(i)];
    const cv::Point2d place = places[static_cast<std::size_t>(i)];
    const double roll = moving % 2 == 0 ? model.roll : -model.roll;
    const double zoom = moving % 4 < 2 ? model.zoom : -model.zoom;
    motion.camera = turned(roll, zoom, model.maxShift * place);
    motion.shutter = model.shutter * cv::Point2d(std::cos(direction), std::sin(direction));
    motion.parallax = model.parallax * place;
    motion.mover = model.mover * (i - reference) * cv::Point2d(0.8, 0.6);
    ++moving;
  }
  return motions;
}

}  // namespace movra::tool
