// The simulated camera: where it looks, what is wrong with it.

#include <gtest/gtest.h>

#include <algorithm>

#include "tools/movra-sr/report/Quality.h"
#include "tools/movra-sr/simulation/Burst.h"
#include "tools/movra-sr/simulation/Optics.h"
#include "tools/movra-sr/simulation/Scene.h"

using namespace movra::tool;

namespace {

/// A scene whose value tells the place: 3 x + 5 y of the reference's pixels.
cv::Mat_<float> ramp(cv::Size frame, int margin) {
  cv::Mat_<float> scene(2 * (frame.height + margin), 2 * (frame.width + margin));
  for (int y = 0; y < scene.rows; ++y) {
    for (int x = 0; x < scene.cols; ++x) {
      scene(y, x) =
          3 * (0.5f * static_cast<float>(x - margin) - 0.25f) + 5 * (0.5f * static_cast<float>(y - margin) - 0.25f);
    }
  }
  return scene;
}

TEST(ToolQuality, KnownValues) {
  cv::Mat_<float> truth(32, 32);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) {
      truth(y, x) = static_cast<float>(20 + 10 * ((x / 4 + y / 4) % 2));
    }
  EXPECT_TRUE(std::isinf(peakSignalToNoise(truth, truth)));
  EXPECT_NEAR(structuralSimilarity(truth, truth), 1, 1e-12);
  const cv::Mat_<float> lifted(truth + 1);
  EXPECT_NEAR(peakSignalToNoise(lifted, truth), 20, 1e-4);  // peak 10, error 1
  EXPECT_GT(structuralSimilarity(lifted, truth), 0.99);     // only the level differs
  EXPECT_LT(structuralSimilarity(cv::Mat_<float>(50 - truth), truth), -0.5);
}

TEST(ToolSimulation, AFrameSeesTheSceneWhereTheMotionSays) {
  const cv::Size size(40, 30);
  const int margin = 20;
  FrameMotion motion;
  motion.camera = {1.02, -0.03, 0.025, 0.99, 1.3, -0.7};
  motion.shutter = {0.8, -0.5};
  const cv::Mat_<float> frame = Optics(0.7).look(ramp(size, margin), margin, size, motion);
  for (const cv::Point2d place : {cv::Point2d(8, 9), cv::Point2d(25, 20), cv::Point2d(19.5, 14.5)}) {
    // Forward, as AffineMotion tells it; the pixel's row decides on the shutter, so that takes some rounds.
    const auto shift = motion.camera.shiftAt(place.x, place.y, size.width, size.height);
    const cv::Point2d still = place + cv::Point2d(shift.x, shift.y);
    cv::Point2d pixel = still;
    for (int i = 0; i < 20; ++i) {
      pixel = still + (pixel.y / (size.height - 1) - 0.5) * motion.shutter;
    }
    const int x = static_cast<int>(pixel.x);
    const int y = static_cast<int>(pixel.y);
    const auto at = [&](int dx, int dy) { return static_cast<double>(frame(y + dy, x + dx)); };
    const double seen = at(0, 0) + (pixel.x - x) * (at(1, 0) - at(0, 0)) + (pixel.y - y) * (at(0, 1) - at(0, 0));
    EXPECT_NEAR(seen, 3 * place.x + 5 * place.y, 2e-3) << place;  // the shutter bends the ramp a little
  }
}

TEST(ToolSimulation, APixelSeesItsAreaBlurredByTheOptics) {
  cv::Mat_<float> scene(24, 24, 0.f);
  scene(12, 12) = 1;
  const cv::Mat_<float> frame = Optics(0.683).look(scene, 0, {12, 12}, {});
  EXPECT_NEAR(cv::sum(frame)[0], 0.25, 1e-6);
  // Variance of the answers over all places of the point: that of optics and area, and of the scene's pixel.
  double variance = 0;
  for (const int place : {12, 13}) {
    scene = 0;
    scene(12, place) = 1;
    const cv::Mat_<float> answer = Optics(0.683).look(scene, 0, {12, 12}, {});
    for (int x = 0; x < 12; ++x) {
      const double distance = 2 * x + 1 - (place + 0.5);
      variance += 2 * cv::sum(answer.col(x))[0] * distance * distance;
    }
  }
  EXPECT_NEAR(variance, 0.683 * 0.683 + 1. / 12, 0.02);
}

TEST(ToolSimulation, FaultsStandInTheDescriptionAndLeaveTheRestAsItIs) {
  SimulatedCamera camera;
  camera.frameSize = {64, 48};
  const int margin = sceneMargin(camera);
  const cv::Mat_<float> scene = drawScene({2 * (64 + margin), 2 * (48 + margin)}, 1);
  const SimulatedBurst clean = simulateBurst(scene, camera);
  camera.faults.stuck = 6;
  camera.faults.defects = 40;
  camera.faults.drift = 2;
  const SimulatedBurst faulty = simulateBurst(scene, camera);
  ASSERT_EQ(faulty.defects.size(), 46U);
  cv::Mat_<unsigned char> bad(48, 64, static_cast<unsigned char>(0));
  for (const Defect& defect : faulty.defects) {
    EXPECT_EQ(bad(defect.pixel), 0) << "twice";
    bad(defect.pixel) = 1;
    const auto change = [&](std::size_t k) { return faulty.frames[k](defect.pixel) - clean.frames[k](defect.pixel); };
    if (defect.kind == Defect::Kind::stuck || defect.kind == Defect::Kind::dead) {
      EXPECT_EQ(faulty.frames[0](defect.pixel), faulty.frames[3](defect.pixel));
    } else if (defect.kind == Defect::Kind::off) {
      EXPECT_NEAR(change(1), defect.value, 1e-4);
    }
  }
  EXPECT_LT(cv::norm(faulty.frames[4], clean.frames[4] + 1.5, cv::NORM_INF, bad == 0), 1e-4);

  const std::vector<std::string> names = {"a", "b", "c", "d", "e"};
  const auto document = describeBurst(faulty, camera, names);
  EXPECT_EQ(document["bad_pixels"].size(), 46U);
  EXPECT_EQ(document["reference"], "b");
  EXPECT_EQ(document["frames"][4]["level"], 1.5);
  EXPECT_EQ(document["frames"][4]["dx"], clean.motions[4].camera.x);
}

TEST(ToolSimulation, NearThingsAndMoversMoveAgainstTheScene) {
  SimulatedCamera camera;
  camera.frameSize = {96, 72};
  camera.motion.maxShift = 0;
  camera.faults.noise = 0;
  const int margin = sceneMargin(camera);
  const cv::Mat_<float> scene = drawScene({2 * (96 + margin), 2 * (72 + margin)}, 1);
  const auto shareThatDiffers = [&] {
    const SimulatedBurst burst = simulateBurst(scene, camera);
    cv::Mat_<float> difference;
    cv::absdiff(burst.frames[0], burst.frames[4], difference);
    return cv::countNonZero(difference > 0.01) / static_cast<double>(difference.total());
  };
  EXPECT_EQ(shareThatDiffers(), 0);
  camera.motion.mover = 1;
  EXPECT_NEAR(shareThatDiffers(), 0.015, 0.01);
  camera.motion.parallax = 1;
  EXPECT_GT(shareThatDiffers(), 0.05);
}

}  // namespace
