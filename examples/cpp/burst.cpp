// Super-resolves a burst with the engine class, which offers more than the C interface: its parameters, the
// shifts that it measured and the sr factor, which tells how well the frames cover the grid of the result.
//
// The frames are made here: a fine picture, moved by known amounts and averaged down. So the result can be
// compared with the truth, and with bicubic enlargement of one frame.

#include <cmath>
#include <cstdio>
#include <iterator>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include <vision/superresolution/SrFloat.h>

namespace {

using movra::vision::SrFloat;
using movra::vision::SrFloatRegistration2;

constexpr int width = 96;
constexpr int height = 72;
constexpr int oversampling = 16;  // picture elements per sensor pixel, each way
constexpr int oldest = 6;         // reference: the oldest of seven frames

// In sensor pixels. The reference lies still.
const cv::Point2d shifts[] = {{0, 0},        {0.5, -0.25},    {-0.4375, 0.375}, {0.25, 0.5},
                              {-0.25, -0.5}, {0.375, 0.1875}, {-0.125, -0.3125}};

/// Temperatures in kelvin: bars of growing fineness, a ring and some spots.
cv::Mat1f drawPicture() {
  cv::Mat1f picture(height * oversampling, width * oversampling, 290.0f);
  for (int i = 0, x = 8 * oversampling; x < 60 * oversampling; ++i) {
    const int barWidth = 3 * oversampling - 2 * i;
    cv::rectangle(picture, {x, 8 * oversampling, barWidth, 24 * oversampling}, cv::Scalar(298.0), cv::FILLED);
    x += 2 * barWidth;
  }
  cv::circle(picture, {76 * oversampling, 48 * oversampling}, 12 * oversampling, cv::Scalar(303.0), oversampling);
  for (int i = 0; i < 6; ++i) {
    cv::circle(picture, {(10 + 9 * i) * oversampling, (44 + 3 * i) * oversampling}, (6 - i) * oversampling / 2,
               cv::Scalar(301.0), cv::FILLED);
  }
  return picture;
}

/// The picture displaced and averaged over square pixels.
cv::Mat1f view(const cv::Mat1f& picture, cv::Point2d shift, int pixelsPerSensorPixel) {
  const cv::Matx23d move(1, 0, shift.x * oversampling, 0, 1, shift.y * oversampling);
  cv::Mat1f moved;
  cv::Mat1f frame;
  cv::warpAffine(picture, moved, move, picture.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  cv::resize(moved, frame, {width * pixelsPerSensorPixel, height * pixelsPerSensorPixel}, 0, 0, cv::INTER_AREA);
  return frame;
}

/// Root of the mean squared difference, away from the borders.
double error(const cv::Mat1f& image, const cv::Mat1f& truth) {
  const cv::Rect inner(8, 8, image.cols - 16, image.rows - 16);
  return cv::norm(image(inner), truth(inner)) / std::sqrt(inner.area());
}

}  // namespace

int main() {
  const cv::Mat1f picture = drawPicture();
  const cv::Mat1f truth = view(picture, {}, 2);

  SrFloat<SrFloatRegistration2> engine(width, height, static_cast<int>(std::size(shifts)), 2.0f);
  engine.setReferenceIndex(oldest);
  for (const cv::Point2d& shift : shifts) {
    engine.addFrame(view(picture, shift, 1));
  }

  cv::Mat_<float> image;
  const float srFactor = engine.computeSR(image);
  if (srFactor < 0) {
    std::fprintf(stderr, "no trustworthy result: %g\n", static_cast<double>(srFactor));
    return 1;
  }

  std::vector<cv::Point_<float>> measured;
  engine.getCompleteShifts(measured);
  for (std::size_t i = 0; i < measured.size(); ++i) {
    std::printf("frame %zu moved by (%6.3f, %6.3f), measured (%6.3f, %6.3f)\n", i, shifts[i].x, shifts[i].y,
                static_cast<double>(measured[i].x), static_cast<double>(measured[i].y));
  }

  cv::Mat1f bicubic;
  cv::resize(view(picture, {}, 1), bicubic, truth.size(), 0, 0, cv::INTER_CUBIC);
  std::printf("sr factor %.2f\n", static_cast<double>(srFactor));
  std::printf("error of one frame, enlarged bicubically: %.3f K\n", error(bicubic, truth));
  std::printf("error of the super-resolved image:        %.3f K\n", error(image, truth));
  return error(image, truth) < error(bicubic, truth) ? 0 : 1;
}
