#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "vision/superresolution/detail/base/Sizes.h"

namespace movra::vision::detail {

/// One buffer of `size` elements per slot, and the array of pointers to them that collaborators work with.
template <class T>
class Slots {
 public:
  Slots(int count, int size) {
    buffers.reserve(static_cast<std::size_t>(checkedSize(count)));
    slotPointers.reserve(buffers.capacity());
    for (int i = 0; i < count; ++i) {
      buffers.push_back(std::make_unique<T[]>(static_cast<std::size_t>(size)));
      slotPointers.push_back(buffers.back().get());
    }
  }

  T** pointers() { return slotPointers.data(); }
  const std::vector<T*>& all() const { return slotPointers; }
  T* operator[](int slot) const { return slotPointers[static_cast<std::size_t>(slot)]; }

  /// Every slot moves one place to the front; the first becomes the last.
  void rotate() { std::rotate(slotPointers.begin(), slotPointers.begin() + 1, slotPointers.end()); }

 private:
  std::vector<std::unique_ptr<T[]>> buffers;
  std::vector<T*> slotPointers;
};

/// The frames that an engine holds, oldest first. The registration's store and the defect maps describe the same frames in
/// the same order.
class FrameWindow {
 public:
  FrameWindow(int capacity_, int frameSize) : capacity(checkedSize(capacity_)), slots(capacity, frameSize) {}

  int count() const { return held; }
  float** frames() { return slots.pointers(); }
  const std::vector<float*>& all() const { return slots.all(); }

  /// The slot that is `fromNewest` frames older than the newest one, or the oldest one.
  int slotOf(int fromNewest) const { return std::max(held - fromNewest - 1, 0); }

  void clear() { held = 0; }

  /// Takes a frame; the oldest one drops out once the window is full.
  /// @param fill    (float* slot) copies the frame
  /// @param repair  (float* slot) -> int detects and replaces bad pixels and keeps their map
  /// @param prepare (float* slot, bool rotated) takes the frame into the registration's store, also when `repair` throws
  /// @return what `repair` gave, at most 0
  template <class Fill, class Repair, class Prepare>
  int take(Fill fill, Repair repair, Prepare prepare) {
    const bool rotated = held == capacity;
    if (rotated) {
      slots.rotate();
    } else {
      ++held;
    }
    float* const newest = slots[held - 1];
    fill(newest);
    int result = 0;
    try {
      result = repair(newest);
    } catch (...) {
      prepare(newest, rotated);
      throw;
    }
    prepare(newest, rotated);
    return std::min(result, 0);
  }

 private:
  int capacity;
  Slots<float> slots;
  int held = 0;
};

}  // namespace movra::vision::detail
