#include <fstream>

#include "tests/support/SilentConsole.h"
#include "tests/support/Test.h"
#include "vision/superresolution/SrFloat.h"

namespace {

using movra::test::Image;
using namespace movra::vision;

/// A line of the kernel's report on this process, in bytes; 0 where there is none.
double memory(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(name + ":", 0) == 0) {
      return std::stod(line.substr(name.size() + 1)) * 1024;
    }
  }
  return 0;
}

bool forgetPeak() {
  return static_cast<bool>(std::ofstream("/proc/self/clear_refs") << 5 << std::flush);
}

}  // namespace

// What the headers promise to those who size a device.
TEST(EngineMemory, PeakIsThatOfTheBuffersAndAQuarter) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer needs memory of its own";
#endif
  const int width = 640, height = 480, frames = 5;
  const double pixels = width * height, paddedPixels = (2 * width + 5) * (2 * height + 5);
  // Per frame: the frame, its moved and its blurred copy, the mask, a pyramid of grey values and 16-bit gradients.
  // Once: two gradients, the image, six padded vectors of the solver.
  const double buffers = frames * pixels * (3 * sizeof(float) + 1 + 5 * 4 / 3.0) + (2 + 4) * pixels * sizeof(float) +
                         6 * paddedPixels * sizeof(float);

  const auto burst = movra::test::makeBurst({width, height, movra::test::smallShifts, 0.02});
  Image out(burst.truth.size(), 1.0f);
  const movra::test::SilentConsole silent;
  cv::setNumThreads(1);
  const double before = memory("VmRSS");
  if (before == 0 || !forgetPeak()) {
    GTEST_SKIP() << "this system does not tell its peak memory";
  }

  SrFloat<SrFloatRegistration2> engine(width, height, frames, 2.0f);
  for (const Image& frame : burst.frames) {
    engine.addFrame(frame.data());
  }
  ASSERT_GT(engine.computeSR(out.data()), 0);
  const double peak = memory("VmHWM") - before;
  RecordProperty("bytesPerPixel", static_cast<int>(peak / pixels));
  EXPECT_LE(peak, 1.25 * buffers) << "buffers: " << buffers;
}
