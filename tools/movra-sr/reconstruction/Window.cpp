#include "tools/movra-sr/reconstruction/Window.h"

#include <algorithm>
#include <cmath>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/reconstruction/Reconstruction.h"

namespace movra::tool {

namespace {

/// Tracking and gradients need some room.
constexpr int smallestSide = 16;

/// A frame with a larger share of values out of range was not given in the unit that the library expects.
constexpr double tolerableShare = 0.1;

[[noreturn]] void refuse(const Frame& frame, const std::string& reason) {
  throw Failure(ExitCode::badInput, frame.name + ": " + reason);
}

/// Refuses the frame when its usable values are none, too few or all the same.
void checkValues(const Frame& frame, bool counts) {
  const float lowest = counts ? -32768.f : -274.f;
  const float highest = counts ? 32767.f : 5000.f;
  float low = highest;
  float high = lowest;
  std::size_t finite = 0;
  std::size_t usable = 0;
  for (const float value : frame.pixels) {
    if (!std::isfinite(value)) {
      continue;
    }
    ++finite;
    if (value < lowest || value > highest) {
      continue;
    }
    ++usable;
    low = std::min(low, value);
    high = std::max(high, value);
  }
  if (finite == 0) {
    refuse(frame, "holds no finite value; leave this frame out or record it again");
  }
  if (usable == 0 ||
      static_cast<double>(finite - usable) > tolerableShare * static_cast<double>(frame.pixels.total())) {
    refuse(frame, counts ? "has values outside -32768 .. 32767; bring them into this range with --gain and --offset"
                         : "has values outside -274 .. 5000, no temperatures; turn counts into temperatures with "
                           "--gain and --offset, or give --counts");
  }
  if (!(low < high)) {
    refuse(frame, "is constant; leave this frame out or record it again");
  }
}

}  // namespace

Window readWindow(const std::vector<std::string>& inputs, const Scale& scale, std::optional<int> first, bool counts) {
  Window window;
  std::string firstName;
  std::string firstSize;
  const auto receive = [&](Frame&& frame) {
    if (window.given == 0) {
      firstName = frame.name;
      firstSize = sizeText(frame.pixels.size());
      if (std::min(frame.pixels.cols, frame.pixels.rows) < smallestSide) {
        refuse(frame,
               "is " + firstSize + "; frames need at least " + std::to_string(smallestSide) + " pixels on each side");
      }
    }
    if (sizeText(frame.pixels.size()) != firstSize) {
      refuse(frame, "is " + sizeText(frame.pixels.size()) + " but " + firstName + " is " + firstSize +
                        "; give frames of one size");
    }
    checkValues(frame, counts);

    const int number = ++window.given;
    if (first && (number < *first || number >= *first + windowSize)) {
      return;
    }
    window.frames.push_back(std::move(frame));
    if (window.frames.size() > windowSize) {
      window.frames.erase(window.frames.begin());
    }
  };
  for (const std::string& file : expandFolders(inputs)) {
    readFrames(file, scale, receive);
  }

  if (window.given < windowSize) {
    throw Failure(ExitCode::badInput, (firstName.empty() ? "" : firstName + ": ") + std::to_string(window.given) +
                                          (window.given == 1 ? " frame" : " frames") +
                                          " given, but a reconstruction takes five; add frames of the same burst");
  }
  if (window.frames.size() < windowSize) {
    throw Failure(ExitCode::usage, "--first " + std::to_string(*first) +
                                       ": five frames from there on are more than the " + std::to_string(window.given) +
                                       " given; use a smaller number");
  }
  return window;
}

}  // namespace movra::tool
