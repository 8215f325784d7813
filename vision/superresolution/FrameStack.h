#pragma once

#include <cstddef>

namespace movra::vision {

/// Frames that somebody else owns: `count` images of height x width floats, each dense and row-major.
struct FrameStack {
  const float* const* frames;
  int count;
  int width;
  int height;

  /// Number of pixels of one frame.
  std::size_t pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
};

}  // namespace movra::vision
