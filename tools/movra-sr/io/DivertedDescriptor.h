#pragma once

namespace movra::tool {

/// Points a standard descriptor elsewhere for as long as the object lives, whatever the code that runs
/// meanwhile prints with. C and C++ streams are flushed at both ends, so that nothing lands on the wrong
/// side.
class DivertedDescriptor {
 public:
  /// `target` is an open descriptor, or `nowhere`.
  DivertedDescriptor(int descriptor, int target);
  ~DivertedDescriptor();
  DivertedDescriptor(const DivertedDescriptor&) = delete;
  DivertedDescriptor& operator=(const DivertedDescriptor&) = delete;

  static constexpr int nowhere = -1;

 private:
  int diverted;
  int saved;
};

}  // namespace movra::tool
