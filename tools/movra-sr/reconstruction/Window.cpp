#include "tools/movra-sr/reconstruction/Window.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

namespace {

/// Tracking and gradients need some room.
constexpr int smallestFrameSide = 16;

/// A frame with a larger share of values out of range was not given in the unit that the library expects.
constexpr double tolerableFaultyShare = 0.1;

[[noreturn]] void refuse(const Frame& frame, const std::string& reason) {
  throw Failure(ExitCode::badInput, frame.name + ": " + reason);
}

void checkSize(const Frame& first, const Frame& frame) {
  const cv::Size size = frame.pixels.size();
  if (std::min(size.width, size.height) < smallestFrameSide) {
    refuse(frame, "is " + sizeText(size) + "; frames need at least " + std::to_string(smallestFrameSide) +
                      " pixels on each side");
  }
  if (size != first.pixels.size()) {
    refuse(frame, "is " + sizeText(size) + " but " + first.name + " is " + sizeText(first.pixels.size()) +
                      "; give frames of one size");
  }
}

/// Refuses what the choice does not let it leave out.
void dropUnusable(Window& window, const WindowChoice& choice) {
  std::vector<Frame> usable;
  std::string fault;
  for (Frame& frame : window.frames) {
    fault = faultOf(frame, choice.counts);
    if (!fault.empty() && !choice.leaveOut) {
      refuse(frame, fault);
    }
    if (fault.empty()) {
      usable.push_back(std::move(frame));
    } else {
      window.notes.push_back(leftOut(frame, fault));
    }
  }
  if (usable.empty()) {
    refuse(window.frames.back(), fault);
  }
  window.frames = std::move(usable);
}

std::string framesInWords(int count) {
  return std::to_string(count) + (count == 1 ? " frame" : " frames");
}

}  // namespace

std::string faultOf(const Frame& frame, bool counts) {
  const float lowest = counts ? -32768.f : -274.f;
  const float highest = counts ? 65535.f : 5000.f;
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
    return "holds no finite value; leave this frame out or record it again";
  }
  if (usable == 0 ||
      static_cast<double>(finite - usable) > tolerableFaultyShare * static_cast<double>(frame.pixels.total())) {
    return counts ? "has values outside -32768 .. 65535; bring them into this range with --gain and --offset"
                  : "has values outside -274 .. 5000, no temperatures; turn counts into temperatures with "
                    "--gain and --offset, or give --counts";
  }
  if (!(low < high)) {
    return "is constant; leave this frame out or record it again";
  }
  return {};
}

std::string leftOut(const Frame& frame, const std::string& fault) {
  return frame.name + ": left out, " + fault.substr(0, fault.find(';'));
}

void requireSameSize(const std::vector<Frame>& frames) {
  for (const Frame& frame : frames) {
    checkSize(frames.front(), frame);
  }
}

Window readWindow(FrameSource& source, const WindowChoice& choice) {
  Window window;
  window.given = static_cast<int>(source.count());
  const std::string least = choice.least == 5 ? "five" : std::to_string(choice.least);
  if (window.given < choice.least) {
    const std::string where = source.files().empty() ? "" : source.files().front() + ": ";
    throw Failure(ExitCode::badInput, where + framesInWords(window.given) + " given, but a reconstruction takes " +
                                          least + "; add frames of the same burst");
  }
  const int most = choice.most > 0 ? choice.most : window.given;
  const int begin = choice.first ? *choice.first - 1 : std::max(0, window.given - most);
  const int end = std::min(window.given, begin + most);
  if (end - begin < choice.least) {
    throw Failure(ExitCode::usage, "--first " + std::to_string(choice.first.value_or(1)) + ": " + least +
                                       (choice.least == 1 ? " frame" : " frames") +
                                       " from there on are more than the " + std::to_string(window.given) +
                                       " given; use a smaller number");
  }
  for (int i = begin; i < end; ++i) {
    window.frames.push_back(source.read(static_cast<std::size_t>(i)));
  }
  requireSameSize(window.frames);
  window.notes = source.takeNotes();
  dropUnusable(window, choice);
  return window;
}

int findReference(const Window& window, const std::string& text) {
  const int count = static_cast<int>(window.frames.size());
  if (text.empty()) {
    return std::max(0, count - 4);
  }
  int back = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), back);
  if (error == std::errc() && end == text.data() + text.size()) {
    if (back < 0 || back >= count) {
      throw Failure(ExitCode::usage, "--reference " + text + ": the " + framesInWords(count) +
                                         " that are used count back from 0, the newest, to " +
                                         std::to_string(count - 1));
    }
    return count - 1 - back;
  }
  const std::filesystem::path wanted = text;
  for (int i = 0; i < count; ++i) {
    const std::filesystem::path name = window.frames[static_cast<std::size_t>(i)].name;
    if (name == wanted || name.filename() == wanted) {
      return i;
    }
  }
  throw Failure(ExitCode::usage, "--reference " + text + ": is none of the frames that are used, " +
                                     window.frames.front().name + " .. " + window.frames.back().name);
}

}  // namespace movra::tool
