#pragma once

#include <vector>

#include "tests/support/SyntheticBurst.h"

namespace movra::test {

/// A registration and the arrays that its caller owns, filled with what it does not write.
template <class Registration>
struct RegistrationRun {
  RegistrationRun(int width, int height, int slots)
      : registration(width, height, slots),
        masks(static_cast<std::size_t>(slots), Mask(static_cast<std::size_t>(width * height), 7)) {}

  void prepare(Image frame) {
    registration.prepareFrame(frame.data());
    if (frames.size() == masks.size()) {
      frames.erase(frames.begin());
    }
    frames.push_back(std::move(frame));
  }
  void prepareAll(const std::vector<Image>& newFrames) {
    for (const Image& frame : newFrames) {
      prepare(frame);
    }
  }

  /// Registers the frames that were prepared.
  int run(int reference = 0) {
    shifted.assign(frames.size(), Image(masks[0].size(), -1));
    shifts.assign(frames.size(), Shift(-1, -1));
    return registration.doRegistration(static_cast<int>(frames.size()), reference, pointersTo(frames).data(),
                                       shifts.data(), pointersTo(masks).data(), pointersTo(shifted).data());
  }

  Registration registration;
  std::vector<Image> frames, shifted;
  std::vector<Shift> shifts;
  std::vector<Mask> masks;
};

}  // namespace movra::test
