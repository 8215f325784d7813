#pragma once

#include "movra/Exception.h"
#include "vision/superresolution/FrameStack.h"
#include "vision/superresolution/detail/badpixels/ValueKey.h"

namespace movra::vision::detail {

/// Whether a sensor pixel holds a measured value: finite, and none of the camera's flags.
inline bool isMeasured(const float& value) {
  return ((bitsOf(value) >> 23) & 0xff) != 0xff && !isFlag(bitsOf(value));
}

/// @throws movra::Exception unless the stack holds at least one image of at least 1 x 1 and no null pointer
inline void requireFrames(const FrameStack& stack) {
  if (stack.count < 1 || stack.width < 1 || stack.height < 1 || stack.frames == nullptr) {
    MOVRA_THROW("no frames");
  }
  for (int k = 0; k < stack.count; ++k) {
    if (stack.frames[k] == nullptr) {
      MOVRA_THROW("a frame is null");
    }
  }
}

inline void requireReference(const FrameStack& stack, int reference) {
  if (reference < 0 || reference >= stack.count) {
    MOVRA_THROW("the reference is none of the frames");
  }
}

inline void requireSameShape(const FrameStack& a, const FrameStack& b) {
  if (a.count != b.count || a.width != b.width || a.height != b.height) {
    MOVRA_THROW("frames and residuals differ in number or size");
  }
}

}  // namespace movra::vision::detail
