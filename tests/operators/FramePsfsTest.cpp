#include "vision/superresolution/detail/operators/FramePsfs.h"

#include <numeric>
#include "tests/support/Test.h"

namespace {

using movra::vision::detail::FramePsfs;
using movra::vision::detail::PsfPlacement;

/// Centre of mass of the taps, in taps.
double centreOf(const float* taps, int count) {
  double sum = 0, moment = 0;
  for (int i = 0; i < count; ++i) {
    sum += static_cast<double>(taps[i]);
    moment += i * static_cast<double>(taps[i]);
  }
  return moment / sum;
}

}  // namespace

TEST(FramePsfs, TheBasePsfHasTheMassesOfAGaussian) {
  for (const double sigma : {0.3, 0.683, 1.1}) {
    FramePsfs psfs(6, 1, 2, PsfPlacement::evenTaps);
    psfs.setSigma(static_cast<float>(sigma));
    const auto massBelow = [&](double x) { return 0.5 * std::erf(x / (sigma * std::sqrt(2.0))); };
    const double inside = massBelow(2) - massBelow(-2);  // the outer taps stay 0
    for (int i = 0; i < 6; ++i) {
      const double expected = i == 0 || i == 5 ? 0 : (massBelow(i - 2) - massBelow(i - 3)) / inside;
      EXPECT_NEAR(static_cast<double>(psfs.base()[i]), expected, 5e-4) << sigma << ' ' << i;
    }
  }
}

TEST(FramePsfs, AShiftMovesTheCentreAgainstItAndKeepsTheMass) {
  for (const auto placement : {PsfPlacement::evenTaps, PsfPlacement::anyFactor}) {
    FramePsfs psfs(6, 2, 2, placement);
    psfs.setSigma(0.683f);
    const cv::Point_<float> shifts[] = {{0.5f, -0.5f}, {-0.2f, 0.0f}};
    psfs.moveTo(2, shifts);
    for (int k = 0; k < 2; ++k) {
      EXPECT_NEAR(centreOf(psfs.x(k), 6), 2.5 - 2 * static_cast<double>(shifts[k].x), 1e-6);
      EXPECT_NEAR(centreOf(psfs.y(k), 6), 2.5 - 2 * static_cast<double>(shifts[k].y), 1e-6);
      EXPECT_NEAR(std::accumulate(psfs.x(k), psfs.x(k) + 6, 0.0f), 1, 1e-6);
    }
  }
}
