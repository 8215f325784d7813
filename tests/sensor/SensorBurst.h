#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/FrameStack.h"

namespace movra::test {

/// Images with the view that the measurements take.
struct Stack {
  std::vector<Image> images;
  std::vector<const float*> pointers;
  int width = 0;
  int height = 0;

  vision::FrameStack view() {
    pointers.clear();
    for (const Image& image : images) {
      pointers.push_back(image.data());
    }
    return {pointers.data(), static_cast<int>(images.size()), width, height};
  }
  float& at(std::size_t frame, int x, int y) { return images[frame][static_cast<std::size_t>(y * width + x)]; }
};

/// Frames of the synthetic scene at exactly known shifts, and what a fit would have predicted of them: the frames
/// without noise, and without anything that a test adds to the frames later.
struct SensorBurst {
  Stack frames;
  Stack predictions;
  std::vector<vision::AffineMotion> motions;

  SensorBurst(int width, int height, const std::vector<Shift>& shifts, double noise, std::uint32_t seed = 1) {
    predictions = {makeBurst({width, height, shifts, 0, seed}).frames, {}, width, height};
    frames = {makeBurst({width, height, shifts, noise, seed}).frames, {}, width, height};
    for (const Shift& shift : shifts) {
      vision::AffineMotion motion;
      motion.x = static_cast<double>(shift.x);
      motion.y = static_cast<double>(shift.y);
      motions.push_back(motion);
    }
  }

  /// Frame less prediction; no prediction in the outermost column.
  Stack residuals() const {
    Stack result = frames;
    for (std::size_t k = 0; k < frames.images.size(); ++k) {
      for (std::size_t i = 0; i < result.images[k].size(); ++i) {
        const bool outside = i % static_cast<std::size_t>(frames.width) == 0;
        result.images[k][i] = outside ? __builtin_nanf("") : frames.images[k][i] - predictions.images[k][i];
      }
    }
    return result;
  }
};

/// Moves of one to three pixels with all fractions.
inline const std::vector<Shift> wideShifts{{0.0f, 0.0f},   {1.6f, -0.9f}, {-1.3f, 1.45f}, {2.2f, 1.7f},
                                           {-0.6f, -2.3f}, {1.05f, 2.6f}, {-2.4f, 0.3f}};

}  // namespace movra::test
