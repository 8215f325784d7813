#include "tools/movra-sr/simulation/Burst.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace movra::tool {

namespace {

/// High-resolution pixels that the PSF reaches to each side of the pixel it is centred in.
int psfRadius(double sigma) {
  return static_cast<int>(std::ceil(4 * sigma)) + 1;
}

/// Mass of a Gaussian over the unit cells -radius .. radius, its centre lying at `centre` within cell 0 (0 ..
/// 1).
cv::Mat_<double> psfMasses(double sigma, double centre) {
  const int radius = psfRadius(sigma);
  cv::Mat_<double> masses(1, 2 * radius + 1);
  const auto massBelow = [&](double x) { return std::erf((x - centre) / (sigma * std::sqrt(2.0))); };
  for (int cell = -radius; cell <= radius; ++cell) {
    masses(0, cell + radius) = massBelow(cell + 1) - massBelow(cell);
  }
  masses /= cv::sum(masses)[0];
  return masses;
}

/// One axis of a frame's view: the scene pixel in which low-resolution pixel 0 has its centre, and the PSF
/// there.
struct AxisView {
  int first;
  cv::Mat_<double> psf;

  AxisView(int margin, double shift, double sigma) {
    const double centre = margin + 1 - 2 * shift;  // low-resolution pixel 0 covers high-resolution pixels 0 and 1
    first = static_cast<int>(std::floor(centre));
    psf = psfMasses(sigma, centre - first);
  }
};

cv::Mat_<float> lookAt(const cv::Mat_<float>& scene, const CameraModel& camera, cv::Point2d shift) {
  const int margin = sceneMargin(camera);
  const AxisView x(margin, shift.x, camera.psfSigma);
  const AxisView y(margin, shift.y, camera.psfSigma);
  cv::Mat_<float> blurred;
  cv::sepFilter2D(scene, blurred, CV_32F, x.psf, y.psf, {-1, -1}, 0, cv::BORDER_REPLICATE);
  cv::Mat_<float> frame(camera.frameSize);
  for (int row = 0; row < frame.rows; ++row)
    for (int column = 0; column < frame.cols; ++column) {
      frame(row, column) = blurred(y.first + 2 * row, x.first + 2 * column);
    }
  return frame;
}

}  // namespace

int sceneMargin(const CameraModel& camera) {
  return static_cast<int>(std::ceil(2 * camera.maxShift)) + psfRadius(camera.psfSigma) + 1;
}

SimulatedBurst simulateBurst(const cv::Mat_<float>& scene, const CameraModel& camera) {
  SimulatedBurst burst;
  burst.reference = std::max(0, camera.frameCount - 4);
  const int margin = sceneMargin(camera);
  burst.truth = scene(cv::Rect(margin, margin, 2 * camera.frameSize.width, 2 * camera.frameSize.height)).clone();

  // All shifts before the noise, so that a seed gives the same ones for every frame size.
  cv::RNG random(camera.seed);
  for (int i = 0; i < camera.frameCount; ++i) {
    // In braces, where the order of the two draws is certain.
    const cv::Point2d shift{random.uniform(-camera.maxShift, camera.maxShift),
                            random.uniform(-camera.maxShift, camera.maxShift)};
    burst.shifts.push_back(i == burst.reference ? cv::Point2d() : shift);
  }
  for (const cv::Point2d& shift : burst.shifts) {
    cv::Mat_<float> frame = lookAt(scene, camera, shift);
    cv::Mat_<float> noise(frame.size());
    random.fill(noise, cv::RNG::NORMAL, 0, camera.noise);
    frame += noise;
    burst.frames.push_back(frame);
  }
  return burst;
}

}  // namespace movra::tool
